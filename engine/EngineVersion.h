#ifndef VELDOR_ENGINE_VERSION_H
#define VELDOR_ENGINE_VERSION_H

namespace veldor {
// The engine answers as a 4.10 engine: the framework interface it implements.
const char* const kEngineVersion = "4.10.0";
}  // namespace veldor

#endif
