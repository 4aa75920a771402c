#include "Diagram.h"

#include <algorithm>
#include <exception>

#include "Engine.h"
#include "PropertyText.h"
#include "TypeText.h"
#include "veld_action.h"
#include "veld_component.h"
#include "veld_input.h"
#include "veld_output.h"
#include "veld_property.h"
#include "veld_thread.h"

namespace veldor {

namespace {

bool Fail(std::string* error, const std::string& text)
{
    if (error) *error = text;
    return false;
}

std::string Quoted(const std::string& text) { return "\"" + text + "\""; }

std::string ModulePart(const std::string& fullName) { return fullName.substr(0, fullName.find('.')); }

bool HasModule(const std::string& fullName, const std::string& module)
{
    return fullName.size() > module.size() && fullName.compare(0, module.size(), module) == 0 &&
           fullName[module.size()] == '.';
}

// The text of what a model's code threw, for a reason.
std::string Thrown(std::exception_ptr thrown)
{
    try {
        std::rethrow_exception(thrown);
    } catch (int code) {
        return "it threw the integer " + std::to_string(code);
    } catch (const std::exception& e) {
        return std::string("it threw: ") + e.what();
    } catch (const char* text) {
        return std::string("it threw: ") + (text ? text : "");
    } catch (...) {
        return "it threw an unknown exception";
    }
}

}  // namespace

Diagram::Diagram(Engine& engine) : m_engine(engine), m_state(0) {}

Diagram::~Diagram() = default;

void Diagram::Tell(const std::string& text) { m_engine.GetConsole().Report(text.c_str(), VELD::Info, 2, true); }

std::vector<VELDComponent*> Diagram::Snapshot() const
{
    std::lock_guard<std::mutex> lock(m_listMutex);
    return m_components;
}

VELDComponent* Diagram::Find(const std::string& name) const
{
    std::lock_guard<std::mutex> lock(m_listMutex);
    for (VELDComponent* component : m_components)
        if (component->Name() && name == component->Name()) return component;
    return nullptr;
}

std::vector<std::string> Diagram::Names() const
{
    std::vector<std::string> names;
    for (VELDComponent* component : Snapshot()) names.push_back(component->Name());
    return names;
}

int Diagram::NbAbandoned() const
{
    std::lock_guard<std::mutex> lock(m_listMutex);
    return static_cast<int>(m_abandoned.size());
}

int Diagram::ReleaseAbandoned(long timeoutMicroseconds)
{
    std::lock_guard<std::mutex> lock(m_listMutex);
    for (auto it = m_abandoned.begin(); it != m_abandoned.end();) {
        if (!m_engine.Threads().WaitUntilLeft(*it, timeoutMicroseconds)) {
            ++it;
            continue;
        }
        std::string name = (*it)->Name();
        {
            std::lock_guard<SymbolTable> symbols(m_engine.Symbols());
            delete *it;
        }
        m_engine.States().Forget(name);
        it = m_abandoned.erase(it);
    }
    return static_cast<int>(m_abandoned.size());
}

bool Diagram::IsDead(const std::string& name) const
{
    VELDComponent* component = Find(name);
    return component && (component->State() & VELD::DeadState) != 0;
}

bool Diagram::OnComponentThread() const
{
    const VELDThreadId self = VELD::CurrentThreadId();
    for (VELDComponent* component : Snapshot()) {
        VELDMutexGuard guard(component->m_structureLock);
        for (VELDBasicListItem* it = component->m_threads.First(); it; it = it->successor)
            if (VELD::SameThread(VELDList<VELDThread*>::Value(it)->Id(), self)) return true;
    }
    return false;
}

bool Diagram::CheckName(const std::string& name, std::string* error) const
{
    bool valid = !name.empty();
    for (char c : name)
        valid = valid && ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
                          c == '@' || c == ':' || c == '-');
    if (!valid)
        return Fail(error, Quoted(name) + " is not a valid component name (letters, digits, \"_\", \"@\", \":\", \"-\")");
    if (name == EngineModule::kName) return Fail(error, "the name \"Engine\" is the engine's own");
    if (Find(name)) return Fail(error, "a component named " + Quoted(name) + " exists already");
    std::lock_guard<std::mutex> lock(m_listMutex);
    for (VELDComponent* component : m_abandoned)
        if (component->Name() && name == component->Name())
            return Fail(error, "the name " + Quoted(name) + " is held by a component that refused to die");
    return true;
}

bool Diagram::KnownModule(const std::string& fullName, std::string* error) const
{
    std::string module = ModulePart(fullName);
    if (module == fullName) return Fail(error, Quoted(fullName) + " is not a full name (<component>.<name>)");
    if (module != EngineModule::kName && !Find(module)) return Fail(error, "unknown component " + Quoted(module));
    return true;
}

// ---------------------------------------------------------------------------
// Components

VELDComponent* Diagram::Create(const std::string& model, const std::string& name, std::string* error)
{
    std::lock_guard<std::recursive_mutex> operation(m_operation);
    if (!CheckName(name, error)) return nullptr;
    VELDComponentDefinition* definition = m_engine.GetPackages().Find(model);
    if (!definition) {
        Fail(error, "unknown model " + Quoted(model));
        return nullptr;
    }
    const unsigned long errors = m_engine.GetConsole().ErrorCount();
    VELDComponent* component = nullptr;
    std::string why;
    std::unique_lock<SymbolTable> symbols(m_engine.Symbols());
    m_engine.LockConfiguration("Creating a component");
    try {
        component = definition->instFunct ? definition->instFunct(name.c_str(), *definition) : nullptr;
    } catch (...) {
        why = Thrown(std::current_exception());
    }
    m_engine.UnlockConfiguration();
    if (!component) {
        if (m_engine.GetConsole().ErrorCount() != errors) why = m_engine.GetConsole().LastError();
        Fail(error, "model " + Quoted(model) + " did not make component " + Quoted(name) +
                        (why.empty() ? "" : ": " + why));
        return nullptr;
    }
    // Dynamic's failures leave the component in ErrorState; it exists all
    // the same.
    component->CallDynamic();
    symbols.unlock();
    {
        std::lock_guard<std::mutex> lock(m_listMutex);
        m_components.push_back(component);
    }
    Tell("Component " + name + " of model " + model + " created.");
    return component;
}

bool Diagram::Rename(const std::string& oldName, const std::string& newName, std::string* error)
{
    std::lock_guard<std::recursive_mutex> operation(m_operation);
    VELDComponent* component = Find(oldName);
    if (!component) return Fail(error, "unknown component " + Quoted(oldName));
    if (!CheckName(newName, error)) return false;
    if (component->IsStarted()) return Fail(error, "component " + Quoted(oldName) + " runs: shut it down first");

    std::lock_guard<SymbolTable> symbols(m_engine.Symbols());
    m_engine.LockConfiguration("Renaming a component");
    bool moved = m_engine.Symbols().RenameModule(oldName, newName);
    if (moved) {
        component->Rename(oldName.c_str(), newName.c_str());
        m_engine.States().Rename(oldName, newName);
        for (Link& link : m_remembered) {
            if (HasModule(link.output, oldName)) link.output = newName + link.output.substr(oldName.size());
            if (HasModule(link.input, oldName)) link.input = newName + link.input.substr(oldName.size());
        }
    }
    m_engine.UnlockConfiguration();
    return moved || Fail(error, "names of " + Quoted(newName) + " are registered already");
}

bool Diagram::StartLocked(VELDComponent& component, std::string* error)
{
    const unsigned long errors = m_engine.GetConsole().ErrorCount();
    std::string why;
    try {
        component.Start();
        return true;
    } catch (...) {
        why = Thrown(std::current_exception());
    }
    if (m_engine.GetConsole().ErrorCount() != errors) why = m_engine.GetConsole().LastError();
    return Fail(error, "component " + Quoted(component.Name()) + " did not start: " + why);
}

bool Diagram::Start(const std::string& name, std::string* error)
{
    std::lock_guard<std::recursive_mutex> operation(m_operation);
    VELDComponent* component = Find(name);
    if (!component) return Fail(error, "unknown component " + Quoted(name));
    return StartLocked(*component, error);
}

void Diagram::ShutdownLocked(VELDComponent& component)
{
    try {
        component.Shutdown();
    } catch (...) {
        std::string text = "Component " + std::string(component.Name()) + " failed to shut down: " +
                           Thrown(std::current_exception());
        m_engine.GetConsole().Report(text.c_str(), VELD::Error, 0, true);
    }
}

bool Diagram::Shutdown(const std::string& name, std::string* error)
{
    std::lock_guard<std::recursive_mutex> operation(m_operation);
    VELDComponent* component = Find(name);
    if (!component) return Fail(error, "unknown component " + Quoted(name));
    if (component->IsStarted()) ShutdownLocked(*component);
    return true;
}

void Diagram::DetachAllOf(VELDComponent& component)
{
    const std::string name = component.Name();
    for (const Connections::Link& link : m_engine.Links().List()) {
        if (!HasModule(link.output, name) && !HasModule(link.input, name)) continue;
        VELDSymbol* output = m_engine.Symbols().Find(link.output.c_str());
        VELDSymbol* input = m_engine.Symbols().Find(link.input.c_str());
        if (output && input)
            m_engine.Detach(*static_cast<VELDOutput*>(output->object), *static_cast<VELDInput*>(input->object));
    }
    m_remembered.erase(std::remove_if(m_remembered.begin(), m_remembered.end(),
                                      [&name](const Link& link) {
                                          return HasModule(link.output, name) || HasModule(link.input, name);
                                      }),
                       m_remembered.end());
}

void Diagram::Destroy(VELDComponent* component)
{
    const std::string name = component->Name();
    {
        std::lock_guard<std::mutex> lock(m_listMutex);
        m_components.erase(std::remove(m_components.begin(), m_components.end(), component), m_components.end());
    }
    if (!m_engine.Threads().WaitUntilLeft(component, m_engine.Module().ShutdownTimeout())) {
        std::string text = "Component " + name +
                           " still has threads running: it is kept, not destroyed, and its package stays loaded.";
        m_engine.GetConsole().Report(text.c_str(), VELD::Warning, 0, true);
        std::lock_guard<std::mutex> lock(m_listMutex);
        m_abandoned.push_back(component);
        return;
    }
    {
        std::lock_guard<SymbolTable> symbols(m_engine.Symbols());
        delete component;
    }
    m_engine.States().Forget(name);
}

bool Diagram::Kill(const std::string& name, std::string* error)
{
    std::lock_guard<std::recursive_mutex> operation(m_operation);
    VELDComponent* component = Find(name);
    if (!component) return Fail(error, "unknown component " + Quoted(name));
    if (component->IsStarted()) ShutdownLocked(*component);
    DetachAllOf(*component);
    Destroy(component);
    return true;
}

// ---------------------------------------------------------------------------
// By full name

bool Diagram::SetProperty(const std::string& fullName, const std::string& value, bool quoted, std::string* error)
{
    std::lock_guard<std::recursive_mutex> operation(m_operation);
    if (!KnownModule(fullName, error)) return false;
    // The write may run the component's Dynamic, which can remove what a
    // reader looks up.
    std::lock_guard<SymbolTable> symbols(m_engine.Symbols());
    VELDProperty* property = m_engine.Property(fullName.c_str());
    if (!property) return Fail(error, "unknown property " + Quoted(fullName));
    return PropertyText::Set(*property, value, quoted, error);
}

bool Diagram::Connect(const std::string& outputName, const std::string& inputName, std::string* error)
{
    std::lock_guard<std::recursive_mutex> operation(m_operation);
    if (!KnownModule(outputName, error) || !KnownModule(inputName, error)) return false;
    VELDOutput* output = nullptr;
    VELDInput* input = nullptr;
    {
        VELDSymbol* o = m_engine.Symbols().Find(outputName.c_str());
        VELDSymbol* i = m_engine.Symbols().Find(inputName.c_str());
        if (o && o->kind == VELDSymbol::OutputSymbol) output = static_cast<VELDOutput*>(o->object);
        if (i && i->kind == VELDSymbol::InputSymbol) input = static_cast<VELDInput*>(i->object);
    }
    if (!output) return Fail(error, "unknown output " + Quoted(outputName));
    if (!input) return Fail(error, "unknown input " + Quoted(inputName));
    const std::string both = "cannot connect " + outputName + " to " + inputName + ": ";
    if (input->Type() && !VELD::TypeFilter(output->Type(), *input->Type()))
        return Fail(error, both + "the output's type is " + DescribeType(output->Type()) + ", the input accepts " +
                               DescribeFilter(input->Type()));
    if (input->ConnectedOutput() == output) return true;
    if (input->ConnectedOutput())
        return Fail(error, both + "the input is fed by " + input->ConnectedOutput()->Name() + " already");
    const unsigned long errors = m_engine.GetConsole().ErrorCount();
    if (m_engine.Attach(*output, *input)) return true;
    return Fail(error, both + (m_engine.GetConsole().ErrorCount() != errors ? m_engine.GetConsole().LastError()
                                                                            : std::string("refused")));
}

bool Diagram::Trigger(const std::string& fullName, const char* argument, std::string* error)
{
    std::lock_guard<std::recursive_mutex> operation(m_operation);
    if (!KnownModule(fullName, error)) return false;
    VELDAction* action = nullptr;
    {
        VELDSymbol* symbol = m_engine.Symbols().Find(fullName.c_str());
        if (symbol && symbol->kind == VELDSymbol::ActionSymbol) action = static_cast<VELDAction*>(symbol->object);
    }
    if (!action) return Fail(error, "unknown action " + Quoted(fullName));
    const unsigned long errors = m_engine.GetConsole().ErrorCount();
    try {
        action->DoIt(argument ? argument : "");
        return true;
    } catch (...) {
        std::string why = m_engine.GetConsole().ErrorCount() != errors ? m_engine.GetConsole().LastError()
                                                                       : Thrown(std::current_exception());
        return Fail(error, "action " + fullName + " failed: " + why);
    }
}

// ---------------------------------------------------------------------------
// The whole

bool Diagram::Run(std::string* error)
{
    std::lock_guard<std::recursive_mutex> operation(m_operation);
    if (IsRunning()) return true;
    m_state = VELD::Running;
    for (const Link& link : m_remembered) {
        std::string why;
        if (!Connect(link.output, link.input, &why)) {
            std::string text = "A connection of the last run is not made again: " + why;
            m_engine.GetConsole().Report(text.c_str(), VELD::Warning, 0, true);
        }
    }
    m_remembered.clear();
    for (VELDComponent* component : Snapshot()) {
        if (component->HasProperty("autoStart") && !component->Property("autoStart").BoolValue()) continue;
        if (!StartLocked(*component, error)) {
            Shutdown();
            return false;
        }
    }
    Tell("The diagram runs.");
    return true;
}

void Diagram::Shutdown()
{
    std::lock_guard<std::recursive_mutex> operation(m_operation);
    std::vector<VELDComponent*> components = Snapshot();
    bool living = false;
    for (VELDComponent* component : components) living = living || component->IsStarted();
    if (!IsRunning() && !living) return;
    m_state = m_state.load() | VELD::ShuttingDown;
    // Every component starts dying at once; each shutdown then waits for
    // its own.
    for (VELDComponent* component : components)
        if (component->IsStarted()) component->Die();
    for (VELDComponent* component : components)
        if (component->IsStarted() || component->IsDying()) ShutdownLocked(*component);
    for (const Connections::Link& link : m_engine.Links().List()) m_remembered.push_back(Link{link.output, link.input});
    m_engine.LockConfiguration("Shutting the diagram down");
    m_engine.Links().DetachAll();
    m_engine.UnlockConfiguration();
    m_state = 0;
    Tell("The diagram is shut down.");
}

void Diagram::Clear()
{
    std::lock_guard<std::recursive_mutex> operation(m_operation);
    Shutdown();
    m_state = VELD::Resetting;
    std::vector<VELDComponent*> components = Snapshot();
    for (auto it = components.rbegin(); it != components.rend(); ++it) {
        DetachAllOf(**it);
        Destroy(*it);
    }
    m_remembered.clear();
    m_state = 0;
}

}  // namespace veldor
