// What a package offers, as `veldor models` prints it: each model with its
// version, then the properties (type, default, unit, flags), inputs (what
// they accept, reader type), outputs (type, size, FIFO size) and actions of
// a component of that model. The component is made for the listing and
// destroyed after it, so that what its Dynamic declares with the default
// properties is listed as well; the built-in properties of every component
// are left out.
#ifndef VELDOR_ENGINE_MODEL_LISTING_H
#define VELDOR_ENGINE_MODEL_LISTING_H

#include <ostream>
#include <string>

namespace veldor {

class Engine;

// The models of a package that `engine` has loaded under `package`.
void ListModels(Engine& engine, const std::string& package, std::ostream& out);

}  // namespace veldor

#endif
