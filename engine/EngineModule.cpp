#include "EngineModule.h"

#include <string>

#include "Engine.h"
#include "EngineVersion.h"
#include "TypeText.h"
#include "veld_input_impl.h"
#include "veld_property.h"

namespace veldor {

const char* const EngineModule::kName = "Engine";

EngineModule::EngineModule(Engine& engine)
    : VELDModule(kName, false, false), m_engine(engine), m_shutdownTimeout(nullptr), m_sequentialStart(nullptr)
{
    // name, value, unit, needs initialising, modifiable after start,
    // read-only, locked. The module lives from its construction, so every
    // setting is modifiable after start: a read-only one is then refused as
    // read-only.
    m_shutdownTimeout = &NewProperty(VELDPropertyDefinition(
        "shutdownTimeout", new VELDPropertyValue(VELDInt64(10000000)), "us", false, true, false, true,
        VELD::PropertySubTypeTime));
    m_sequentialStart = &NewProperty(
        VELDPropertyDefinition("sequentialStart", new VELDPropertyValue(false), nullptr, false, true, false, true));
    NewProperty(VELDPropertyDefinition("version", new VELDPropertyValue(kEngineVersion), nullptr, false, true, true,
                                       true));
    VELDProperty& speed = NewProperty(VELDPropertyDefinition(
        "speed", new VELDPropertyValue(VELDInt64(m_engine.Clock().Speed())), "1/1000", false, true, false, true));
    speed.SetSetCallback(&EngineModule::SetSpeed);
    speed.SetGetCallback(&EngineModule::GetSpeed);
    VELDProperty& time = NewProperty(VELDPropertyDefinition("time", new VELDPropertyValue(VELDInt64(0)), "us", false,
                                                            true, true, true, VELD::PropertySubTypeTime));
    time.SetGetCallback(&EngineModule::GetTime);
    NewAction(VELDActionDefinition("refreshInputProperties",
                                   new VELDActionFunction(&EngineModule::RefreshInputProperties), true));
}

EngineModule::~EngineModule() = default;

bool EngineModule::SequentialStart()
{
    bool value = false;
    VELDModule::Get(*this, *m_sequentialStart, value);
    return value;
}

VELDInt64 EngineModule::ShutdownTimeout()
{
    VELDInt64 value = 0;
    VELDModule::Get(*this, *m_shutdownTimeout, value);
    return value < 0 ? 10000000 : value;
}

VELDProperty* EngineModule::Find(const std::string& name)
{
    std::string shortName = name.compare(0, 7, "Engine.") == 0 ? name.substr(7) : name;
    return HasProperty(shortName.c_str()) ? &Property(shortName.c_str()) : nullptr;
}

void EngineModule::SetSpeed(VELDProperty& property)
{
    static_cast<EngineModule*>(property.Owner())->m_engine.Clock().SetSpeed(static_cast<int>(property.IntegerValue()));
}

// The clock's speed changes by other ways too (SetTimeSpeed): reads follow it.
void EngineModule::GetSpeed(VELDProperty& property, void* value)
{
    *static_cast<VELDInt64*>(value) = static_cast<EngineModule*>(property.Owner())->m_engine.Clock().Speed();
}

void EngineModule::GetTime(VELDProperty& property, void* value)
{
    *static_cast<VELDInt64*>(value) = static_cast<EngineModule*>(property.Owner())->m_engine.Clock().Now();
}

// The engine keeps nothing of an input's reader type beyond its reader in
// the FIFO, which the input's own setting already changed: the action makes
// sure the input is known and tells the new type to a verbose report.
void EngineModule::RefreshInputProperties(VELDModule* module, int, const char* input)
{
    // Called under the input's module's structure lock: the symbols lock,
    // which comes before it, is not taken.
    Engine& engine = static_cast<EngineModule*>(module)->m_engine;
    VELDSymbol* symbol = engine.Symbols().Find(input);
    std::string text;
    if (!symbol || symbol->kind != VELDSymbol::InputSymbol) {
        text = std::string("refreshInputProperties: there is no input ") + (input ? input : "") + ".";
        engine.GetConsole().Report(text.c_str(), VELD::Warning, 1, true);
        return;
    }
    auto* implementation = static_cast<VELDInputImplementation*>(static_cast<VELDInput*>(symbol->object));
    text = std::string("Input ") + input + " reads as " + ReaderTypeName(implementation->ReaderType()) + ".";
    engine.GetConsole().Report(text.c_str(), VELD::Info, 2, true);
}

}  // namespace veldor
