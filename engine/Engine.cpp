#include "Engine.h"

#include <time.h>

#include <algorithm>
#include <mutex>
#include <vector>

#include "EngineVersion.h"
#include "Script.h"
#include "ScriptRunner.h"
#include "veld.h"
#include "veld_component.h"
#include "veld_action.h"
#include "veld_constants.h"
#include "veld_input.h"
#include "veld_output.h"
#include "veld_private.h"
#include "veld_property.h"

namespace veldor {

namespace {

// The engines alive in this process, oldest first. The framework code of the
// process runs on one kernel: the newest engine's, and when that one goes,
// the newest of those left, so that an engine outliving a younger one keeps
// its kernel.
std::mutex g_enginesMutex;
std::vector<Engine*> g_engines;

}  // namespace

Engine::Engine(const EngineOptions& options)
    : m_connections(m_console), m_diagram(*this), m_shutdownRequested(false), m_checkLevel(options.checkLevel),
      m_state(0), m_keys(VELD::DefaultKeysState), m_prepareExitCount(0), m_finishExitCount(0)
{
    m_console.SetPrinting(options.printReports);
    m_console.SetVerbosity(options.verbosity);
    // The framework code of the engine's own process runs on this kernel;
    // the engine's module registers its settings with it.
    {
        std::lock_guard<std::mutex> lock(g_enginesMutex);
        g_engines.push_back(this);
    }
    VELDPrivate::SetKernel(this);
    m_engineModule.reset(new EngineModule(*this));
}

// Components go first, while their packages are loaded and the engine's
// framework code still reports here; the package files close last.
Engine::~Engine()
{
    // A component's thread that is on its way out may still read the
    // kernel: it is written only when another engine holds it.
    if (VELDPrivate::kernel != this) VELDPrivate::SetKernel(this);
    m_diagram.Clear();
    // Code must not be unloaded under a thread: a component that outlived
    // its shutdown gets the default limit once more.
    if (m_diagram.ReleaseAbandoned(10000000) > 0) m_packages.KeepLoaded();
    // A thread that has left its body may still be on its way out through
    // a package's code.
    if (!m_threads.WaitForExits(1000000)) m_packages.KeepLoaded();
    m_engineModule.reset();
    std::lock_guard<std::mutex> lock(g_enginesMutex);
    g_engines.erase(std::find(g_engines.begin(), g_engines.end(), this));
    VELDPrivate::SetKernel(g_engines.empty() ? nullptr : g_engines.back());
}

bool Engine::LoadPackage(const std::string& path, std::string* error)
{
    if (!m_packages.Load(path, this, "", error)) return false;
    std::string text = "Package " + path + " loaded.";
    m_console.Report(text.c_str(), VELD::Info, 2, true);
    return true;
}

void Engine::ReportFailure(const char* operation, const std::string& reason)
{
    std::string text = std::string(operation) + ": " + reason;
    m_console.Report(text.c_str(), VELD::Error, 0, true);
}

void Engine::Unsupported(const char* operation)
{
    {
        std::lock_guard<std::mutex> lock(m_unsupportedMutex);
        if (std::find(m_unsupportedTold.begin(), m_unsupportedTold.end(), operation) != m_unsupportedTold.end())
            return;
        m_unsupportedTold.push_back(operation);
    }
    std::string text = std::string(operation) + " is not offered by this engine; the call does nothing.";
    m_console.Report(text.c_str(), VELD::Warning, 1, true);
}

void Engine::SetKeysState(int keys) { m_keys = keys; }

// ---------------------------------------------------------------------------
// Configuration and symbols

void ConfigurationLock::lock()
{
    const std::thread::id self = std::this_thread::get_id();
    if (m_owner.load() == self) {
        ++m_depth;
        return;
    }
    m_mutex.lock();
    m_owner.store(self);
    m_depth = 1;
}

void ConfigurationLock::unlock()
{
    if (--m_depth > 0) return;
    m_owner.store(std::thread::id());
    m_mutex.unlock();
}

void Engine::LockConfiguration(const char*) { m_configurationLock.lock(); }
void Engine::UnlockConfiguration() { m_configurationLock.unlock(); }
int Engine::GetKeysState() { return m_keys; }

VELDSymbol* Engine::FindSymbol(const char* name) { return m_symbols.Find(name); }
void Engine::UnregisterSymbol(const char* fullName) { m_symbols.Unregister(fullName); }
void Engine::LockSymbols() { m_symbols.Lock(); }
void Engine::UnlockSymbols() { m_symbols.Unlock(); }

bool Engine::RegisterSymbol(const char* fullName, VELDSymbol::Kind kind, VELDModule* module, void* object)
{
    return m_symbols.Register(fullName, kind, module, object);
}

bool Engine::RegisterInput(VELDInput* input)
{
    return input && RegisterSymbol(input->Name(), VELDSymbol::InputSymbol, nullptr, input);
}

bool Engine::RegisterOutput(VELDOutput* output)
{
    return output && RegisterSymbol(output->Name(), VELDSymbol::OutputSymbol, nullptr, output);
}

bool Engine::RegisterProperty(VELDProperty* property)
{
    return property && RegisterSymbol(property->Name(), VELDSymbol::PropertySymbol, property->Owner(), property);
}

bool Engine::RegisterAction(VELDAction* action)
{
    return action && RegisterSymbol(action->Name(), VELDSymbol::ActionSymbol, nullptr, action);
}

VELDProperty* Engine::FindProperty(const char* fullName)
{
    VELDSymbol* symbol = m_symbols.Find(fullName);
    return symbol && symbol->kind == VELDSymbol::PropertySymbol ? static_cast<VELDProperty*>(symbol->object)
                                                                : nullptr;
}

VELDProperty* Engine::Property(const char* fullName) { return FindProperty(fullName); }

// The graph is told of its elements; the engine keeps what it needs from the
// symbol table.
void Engine::ModuleOutputCreated(const char*, const char*, const char*, int) {}
void Engine::InputRemoved(const char*) {}
void Engine::OutputRemoved(const char*) {}
void Engine::ComponentOutputCreated(const char*, const char*, const char*, int) {}
void Engine::ComponentInputCreated(const char*, const char*, const char*, int) {}
void Engine::ModuleStateChanged(const char* moduleName, int state) { m_moduleStates.Changed(moduleName, state); }

// ---------------------------------------------------------------------------
// Listeners

void Engine::RegisterTimeStateListener(VELDTimeStateListener* listener) { m_clock.AddListener(listener); }

// A listener that never registered is accepted too.
void Engine::UnregisterTimeStateListener(VELDTimeStateListener* listener) { m_clock.RemoveListener(listener); }

void Engine::RegisterKeysListener(VELDHMIKeysListener* listener)
{
    std::lock_guard<std::mutex> lock(m_listenersMutex);
    if (std::find(m_keysListeners.begin(), m_keysListeners.end(), listener) == m_keysListeners.end())
        m_keysListeners.push_back(listener);
}

void Engine::UnregisterKeysListener(VELDHMIKeysListener* listener)
{
    std::lock_guard<std::mutex> lock(m_listenersMutex);
    m_keysListeners.erase(std::remove(m_keysListeners.begin(), m_keysListeners.end(), listener),
                          m_keysListeners.end());
}

// ---------------------------------------------------------------------------
// Clocks that packages supply are given ids; the engine's own clock (id 0)
// stays the master. Virtual clocks are not offered.

int Engine::InitVirtualClockTime(long, long, int)
{
    Unsupported("InitVirtualClockTime");
    return 0;
}
int Engine::UninitVirtualClockTime() { return 0; }
int Engine::SynchClockCurrentTime() { return 0; }
VELDTimestamp Engine::GetVirtualClockTimebase() { return 0; }
VELDTimestamp Engine::GetVirtualClockTimebaseX() { return 0; }
void Engine::RegisterClock(VELDBaseClock* clock, unsigned char* clockId)
{
    unsigned char id = m_clock.RegisterClock(clock);
    if (clockId) *clockId = id;
}
void Engine::UnregisterClock(VELDBaseClock* clock) { m_clock.UnregisterClock(clock); }
unsigned char Engine::GetMasterCurrentClockID() { return 0; }
void Engine::SignalMasterClockChanged(unsigned char) {}
unsigned char Engine::GetCurrentClockID() { return 0; }

// ---------------------------------------------------------------------------
// Sessions, replay and record: not offered

bool Engine::InitializeSession() { return true; }
void Engine::StopSendingData() {}
void Engine::StopReplaying() {}
bool Engine::Replay(const char*)
{
    Unsupported("Replay");
    return false;
}
bool Engine::Copy(const char*, const char*)
{
    Unsupported("Copy");
    return false;
}
void Engine::SetRecording(bool on)
{
    if (on) Unsupported("SetRecording");
}
void Engine::FromNowOnDataAreUnsorted() {}
bool Engine::Record(const char*, const char*, const char*, bool, bool)
{
    Unsupported("Record");
    return false;
}
void Engine::Record() { Unsupported("Record"); }
bool Engine::IsRecording() { return false; }
bool Engine::IsReplaying() { return false; }
void Engine::SignalRecordSkipped() {}
VELDTimestamp Engine::GetFirstTimestamp() { return 0; }
VELDTimestamp Engine::GetLastTimestamp() { return 0; }
void Engine::Play() { m_clock.SetPaused(false); }
void Engine::Stop() {}
void Engine::Pause() { m_clock.SetPaused(true); }
void Engine::Next() {}
void Engine::Previous() {}
void Engine::Go2Index(int) { Unsupported("Go2Index"); }
void Engine::Go2PreviousIndex() { Unsupported("Go2PreviousIndex"); }
void Engine::Go2NextIndex() { Unsupported("Go2NextIndex"); }
bool Engine::IsDistributedAsMaster() { return false; }
bool Engine::IsDistributedAsSlave() { return false; }
bool Engine::GetSynchronizer(void*, VELDSynchronizer** synchronizer)
{
    if (synchronizer) *synchronizer = nullptr;
    return false;
}
void Engine::ReleaseSynchronizer(void*, VELDSynchronizer** synchronizer)
{
    if (synchronizer) *synchronizer = nullptr;
}

// ---------------------------------------------------------------------------
// Components, connections and threads: the graph of a later stage

// ---------------------------------------------------------------------------
// Components of the diagram

VELDComponent* Engine::CreateComponent(const char* model, const char* name, bool start)
{
    std::string error;
    VELDComponent* component = m_diagram.Create(model ? model : "", name ? name : "", &error);
    if (component && start && !m_diagram.Start(component->Name(), &error)) ReportFailure("StartComponent", error);
    if (!component) ReportFailure("CreateComponent", error);
    return component;
}

bool Engine::OnComponent(const char* operation, DiagramOperation action, const char* name)
{
    std::string error;
    bool done = (m_diagram.*action)(name ? name : "", &error);
    if (!done) ReportFailure(operation, error);
    return done;
}

bool Engine::StartComponent(const char* name) { return OnComponent("StartComponent", &Diagram::Start, name); }

bool Engine::ShutdownComponent(const char* name)
{
    return OnComponent("ShutdownComponent", static_cast<DiagramOperation>(&Diagram::Shutdown), name);
}

bool Engine::KillComponent(const char* name) { return OnComponent("KillComponent", &Diagram::Kill, name); }

// A refused name is an answer, not an error: the caller may try another.
bool Engine::RenameComponent(const char* oldName, const char* newName)
{
    std::string error;
    bool done = m_diagram.Rename(oldName ? oldName : "", newName ? newName : "", &error);
    if (!done) {
        std::string text = "RenameComponent: " + error;
        m_console.Report(text.c_str(), VELD::Warning, 1, true);
    }
    return done;
}

// Connections: under the configuration lock, then the connections' own.

// Taken under the configuration lock: the symbols lock, which comes before
// it, is not.
void* Engine::FindElement(const char* fullName, long kind, const char* operation)
{
    VELDSymbol* symbol = m_symbols.Find(fullName);
    if (symbol && symbol->kind == kind) return symbol->object;
    std::string text = std::string(operation) + ": there is no " +
                       (kind == VELDSymbol::InputSymbol ? "input " : "output ") + (fullName ? fullName : "") + ".";
    m_console.Report(text.c_str(), VELD::Error, 0, true);
    return nullptr;
}

VELDInput* Engine::FindInput(const char* fullName, const char* operation)
{
    return static_cast<VELDInput*>(FindElement(fullName, VELDSymbol::InputSymbol, operation));
}

VELDOutput* Engine::FindOutput(const char* fullName, const char* operation)
{
    return static_cast<VELDOutput*>(FindElement(fullName, VELDSymbol::OutputSymbol, operation));
}

bool Engine::Attach(const char* output, const char* input)
{
    std::lock_guard<ConfigurationLock> lock(m_configurationLock);
    VELDOutput* out = FindOutput(output, "Attach");
    VELDInput* in = out ? FindInput(input, "Attach") : nullptr;
    return in && m_connections.Attach(*out, *in);
}

// The second form moves an input that another output feeds.
bool Engine::Attach2(const char* output, const char* input)
{
    std::lock_guard<ConfigurationLock> lock(m_configurationLock);
    VELDOutput* out = FindOutput(output, "Attach2");
    VELDInput* in = out ? FindInput(input, "Attach2") : nullptr;
    return in && m_connections.Replace(*out, *in);
}

bool Engine::Attach(VELDOutput& output, VELDInput& input)
{
    std::lock_guard<ConfigurationLock> lock(m_configurationLock);
    return m_connections.Attach(output, input);
}

bool Engine::Detach(VELDOutput& output, VELDInput& input)
{
    std::lock_guard<ConfigurationLock> lock(m_configurationLock);
    return m_connections.Detach(output, input);
}

void* Engine::ComponentMainThread(void* component)
{
    return m_threads.MainThread(*static_cast<VELDComponent*>(component));
}
void* Engine::ModuleThread(void* startRecord) { return m_threads.ModuleThread(startRecord); }
void* Engine::ComponentThread(void* startRecord) { return m_threads.ComponentThread(startRecord); }
// This engine has no core functions.
void* Engine::CoreFunction(const char*) { return nullptr; }
VELDComponent* Engine::Component(const char* name) { return name ? m_diagram.Find(name) : nullptr; }
void Engine::SignalFifoOverflow(void* output) { m_fifoReaders.CountOverflow(output); }
int Engine::GetNbFifoOverflows() { return m_fifoReaders.TotalOverflows(); }

// ---------------------------------------------------------------------------
// Scripts, packages, run

bool Engine::Parse(const char* text)
{
    Script script;
    std::string error;
    ScriptRunner runner(*this);
    bool done = Script::Parse(text ? text : "", "<text>", "", &script, &error) && runner.Run(script, &error);
    if (!done) ReportFailure("Parse", error);
    return done;
}

bool Engine::ParseFile(const char* path)
{
    Script script;
    std::string error;
    ScriptRunner runner(*this);
    bool done = Script::ParseFile(path ? path : "", &script, &error) && runner.Run(script, &error);
    if (!done) ReportFailure("ParseFile", error);
    return done;
}

bool Engine::AsynchParse(const char*)
{
    Unsupported("AsynchParse");
    return false;
}

bool Engine::AsynchParseFile(const char*)
{
    Unsupported("AsynchParseFile");
    return false;
}

bool Engine::Run()
{
    std::string error;
    bool done = m_diagram.Run(&error);
    if (!done) ReportFailure("Run", error);
    return done;
}

// A component's thread can't wait for its own death: from there the
// shutdown is left to whoever drives the engine.
void Engine::ShutdownOrRequest()
{
    if (m_diagram.OnComponentThread()) {
        m_shutdownRequested = true;
        m_console.Report("The diagram's shutdown was asked for by a component.", VELD::Info, 1, true);
    } else {
        m_diagram.Shutdown();
    }
}

bool Engine::Shutdown()
{
    ShutdownOrRequest();
    return true;
}

bool Engine::Reset()
{
    if (m_diagram.OnComponentThread()) {
        ReportFailure("Reset", "a component can't reset the diagram it runs in");
        return false;
    }
    m_diagram.Clear();
    return true;
}

bool Engine::RegisterPackage(const char* path, const char* name)
{
    std::string error;
    bool done = m_packages.Load(path ? path : "", this, name ? name : "", &error);
    if (!done) ReportFailure("RegisterPackage", error);
    return done;
}

bool Engine::UnregisterPackage(const char* name) { return m_packages.Unregister(name ? name : ""); }
void Engine::RegisterStandardPackages() {}
bool Engine::LoadCoreFunction(const char*, const char*)
{
    Unsupported("LoadCoreFunction");
    return false;
}
bool Engine::UnloadCoreFunction(const char*) { return false; }

// The first exit step stops what runs; the second releases the rest. Each
// counts its calls.
void Engine::PrepareExit()
{
    ++m_prepareExitCount;
    ShutdownOrRequest();
    m_state = (m_state | VELD::ShuttingDown) & ~VELD::Running;
}

void Engine::FinishExit()
{
    ++m_finishExitCount;
    m_state = 0;
}

// ---------------------------------------------------------------------------
// Reports and state

void Engine::Report(const char* message, int level, int verbosity, bool fromKernel)
{
    m_console.Report(message, level, verbosity, fromKernel);
}

VELDEvent* Engine::GetShutdownEvent() { return &m_shutdownEvent; }
int Engine::GetState() { return m_state | m_diagram.State(); }
int Engine::CheckLevel() { return m_checkLevel; }
VELDMutex* Engine::GlobalOSMutex() { return &m_globalMutex; }
VELDEventService* Engine::GetEventService() { return &m_events; }

// Settings of the configuration are the engine's properties.
VELDString Engine::GetGlobalConfigValue(const char* key)
{
    VELDString value;
    return ReadProperty(key, &value) ? value : VELDString("");
}

VELDString Engine::About()
{
    return VELDString((std::string("veldor engine ") + kEngineVersion + ", framework " +
                       VELD::KernelVersion.Beginning())
                          .c_str());
}

// ---------------------------------------------------------------------------
// Time. None of these takes the time-state lock except the changes, which
// take it themselves: they are safe to call with the lock held, the changes
// are not.

VELDTimestamp Engine::GetSystemAccurateTiming() { return EngineClock::Monotonic(); }
VELDTimestamp Engine::CurrentTime(bool, bool) { return m_clock.Now(); }
VELDTimestamp Engine::TimeReference() { return 0; }
void Engine::SetCurrentTime(VELDTimestamp time) { m_clock.SetTime(time); }
int Engine::TimeSpeed() { return m_clock.Speed(); }
void Engine::SetTimeSpeed(int speed) { m_clock.SetSpeed(speed); }
int Engine::GetAbsoluteTimeSpeed() { return m_clock.Speed(); }
void Engine::SetAbsoluteTimeSpeed(int speed, int) { m_clock.SetSpeed(speed); }
int Engine::TimeState() { return m_clock.IsPaused() ? VELD::Paused : VELD::Running; }
bool Engine::IsPaused() { return m_clock.IsPaused(); }
void Engine::SetTimeAdapt(int) {}
VELDCondition* Engine::GetTimeStateCondition() { return &m_clock.TimeStateCondition(); }
void Engine::LockTimeState() { m_clock.TimeStateLock().Lock(); }
void Engine::UnlockTimeState() { m_clock.TimeStateLock().Release(); }

// ---------------------------------------------------------------------------
// Global properties: those of every module, the engine's own included, read
// through their owner so that get callbacks run ("Engine.time").

namespace {

bool Fits(int type, bool*) { return type == VELD::BoolProperty; }
bool Fits(int type, VELDInt64*) { return type == VELD::IntegerProperty || type == VELD::EnumProperty; }
bool Fits(int type, VELDFloat64*) { return type == VELD::FloatProperty; }
bool Fits(int type, VELDString*) { return type == VELD::StringProperty || type == VELD::EnumProperty; }

}  // namespace

// The engine's own settings live as long as the engine: they are read
// without the symbols lock, which a component holds the other way round
// while it starts (its start lock first, then the setting it reads).
template <class T>
bool Engine::ReadProperty(const char* fullName, T* value)
{
    VELDProperty* property = FindProperty(fullName);
    if (!property || !property->Owner() || !Fits(property->Type(), value)) return false;
    std::unique_lock<SymbolTable> lock(m_symbols, std::defer_lock);
    if (property->Owner() != m_engineModule.get()) {
        lock.lock();
        property = FindProperty(fullName);
        if (!property || !property->Owner()) return false;
    }
    try {
        VELDModule::Get(*property->Owner(), *property, *value);
    } catch (int) {
        return false;
    }
    return true;
}

bool Engine::GetBoolProperty(const char* fullName, bool* ok)
{
    bool value = false;
    bool found = ReadProperty(fullName, &value);
    if (ok) *ok = found;
    return found && value;
}

VELDInt64 Engine::GetIntegerProperty(const char* fullName, bool* ok)
{
    VELDInt64 value = 0;
    bool found = ReadProperty(fullName, &value);
    if (ok) *ok = found;
    return found ? value : 0;
}

double Engine::GetFloatProperty(const char* fullName, bool* ok)
{
    VELDFloat64 value = 0.0;
    bool found = ReadProperty(fullName, &value);
    if (ok) *ok = found;
    return found ? value : 0.0;
}

}  // namespace veldor
