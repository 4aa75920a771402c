// The engine's own module, named "Engine": its settings are properties of a
// real module, registered like those of any component, so that packages
// read them by full name (VELD::Property("Engine.version"),
// VELD::GetIntegerProperty("Engine.shutdownTimeout", ...)) and find the
// module through the symbol "Engine.time".
//
//   Engine.shutdownTimeout  integer, microseconds (10000000): how long a
//                           dying component's threads get; negative: 10 s
//   Engine.sequentialStart  bool (false): Run starts each component only
//                           once the one before was born
//   Engine.version          string, read-only: the engine's version
//   Engine.speed            integer, thousandths of real time (1000): the
//                           clock's speed; setting it sets the clock's
//   Engine.time             integer, read-only: the clock's current time
//
// and the action "refreshInputProperties", which a package triggers with an
// input's full name when the input's reader type changed.
//
// User settings (scripts, the command line) are plain checked writes of
// these properties; see PropertyText.
#ifndef VELDOR_ENGINE_ENGINE_MODULE_H
#define VELDOR_ENGINE_ENGINE_MODULE_H

#include <string>

#include "veld_module.h"

namespace veldor {

class Engine;

class EngineModule : public VELDModule {
public:
    static const char* const kName;  // "Engine"

    // Registers the properties and the action with `engine`, which must be
    // the kernel of the framework code of this process at that moment.
    explicit EngineModule(Engine& engine);
    ~EngineModule() override;

    Engine& Owner() const { return m_engine; }

    bool SequentialStart();
    // The limit of a component's threads to end, in microseconds: the
    // property, or 10 s when it is negative.
    VELDInt64 ShutdownTimeout();

    // The property of a name with or without "Engine."; null when unknown.
    VELDProperty* Find(const std::string& name);

private:
    static void SetSpeed(VELDProperty& property);
    static void GetSpeed(VELDProperty& property, void* value);
    static void GetTime(VELDProperty& property, void* value);
    static void RefreshInputProperties(VELDModule* module, int index, const char* input);

    Engine& m_engine;
    VELDProperty* m_shutdownTimeout;
    VELDProperty* m_sequentialStart;
};

}  // namespace veldor

#endif
