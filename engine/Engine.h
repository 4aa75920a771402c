// The stand-alone engine: the kernel services object that a package
// receives in VELDPckInit, and the owner of everything a diagram needs
// around its components.
//
// The engine is built of parts, each a class of its own, that it wires to the
// kernel operations:
//   Console           reports: the terminal and a capture
//   SymbolTable       full names of inputs, outputs, properties, actions
//   EngineModule      the engine's own module "Engine": its settings
//                     ("Engine.shutdownTimeout"...) as real properties
//   EventService      multi-event waits and timed triggers
//   EngineClock       the diagram's time: speed, pause, jumps, listeners
//   FifoReaders       readers of the outputs' FIFOs, and their overflows
//   Connections       which output feeds which input
//   ComponentThreads  the bodies of components' and modules' threads
//   ModuleStates      the last state each module told, by name
//   Packages          the package files and the models they offer
//   Diagram           the components of the diagram; run and shutdown
// Scripts (Script, ScriptRunner) describe a diagram in text and drive these
// parts from outside.
//
// A program builds and runs a diagram without a script like this:
//
//   veldor::Engine engine;
//   engine.LoadPackage("build/packages/my.pck");          // false: see error
//   engine.Graph().Create("Generator", "gen");            // null: see error
//   engine.Graph().Create("Sink", "sink");
//   engine.Graph().SetProperty("gen.period", "1000", false);
//   engine.Graph().Connect("gen.oValue", "sink.iValue");
//   engine.Graph().Run();
//   ...
//   engine.Graph().Shutdown();
//
// Each of those takes an optional std::string* that receives the reason of
// a failure. The kernel operations (CreateComponent, Run, Shutdown...) do
// the same and report the reason instead.
//
// One engine is the kernel of the framework code linked into this process as
// well: the constructor makes it so, and the last engine made wins.
//
// Operations that this engine does not offer (recording sessions, indexed
// replay, distributed runs, virtual clocks) answer with false, null or 0 and
// a warning in the report, and change nothing.
#ifndef VELDOR_ENGINE_ENGINE_H
#define VELDOR_ENGINE_ENGINE_H

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "ComponentThreads.h"
#include "Connections.h"
#include "Console.h"
#include "Diagram.h"
#include "EngineClock.h"
#include "EngineModule.h"
#include "EventService.h"
#include "FifoReaders.h"
#include "ModuleStates.h"
#include "Packages.h"
#include "SymbolTable.h"
#include "veld_kernel_services.h"
#include "veld_module.h"
#include "veld_os_c_wrappers_posix.h"

namespace veldor {

struct EngineOptions {
    bool printReports = true;
    int verbosity = Console::kDefaultVerbosity;
    // The access check level of I/O elements that packages ask for: 0 checks
    // nothing, higher levels check more.
    int checkLevel = 0;
};

// The lock of the graph's structure. Re-entrant, and a thread that holds it
// takes it again without touching the mutex: a module may re-take it under
// its own locks (removing an element inside Dynamic) without ordering them.
class ConfigurationLock {
public:
    void lock();
    void unlock();

private:
    std::mutex m_mutex;
    std::atomic<std::thread::id> m_owner;
    int m_depth = 0;
};

class Engine : public VELDKernelServices {
public:
    explicit Engine(const EngineOptions& options = EngineOptions());
    Engine(const Engine&) = delete;
    Engine& operator=(const Engine&) = delete;
    virtual ~Engine();

    Console& GetConsole() { return m_console; }
    SymbolTable& Symbols() { return m_symbols; }
    // The engine's settings, "Engine.<name>".
    EngineModule& Module() { return *m_engineModule; }
    EventService& Events() { return m_events; }
    EngineClock& Clock() { return m_clock; }
    FifoReaders& Readers() { return m_fifoReaders; }
    Connections& Links() { return m_connections; }
    ComponentThreads& Threads() { return m_threads; }
    ModuleStates& States() { return m_moduleStates; }
    Packages& GetPackages() { return m_packages; }
    Diagram& Graph() { return m_diagram; }

    // Loads a package file for this engine; see Packages::Load.
    bool LoadPackage(const std::string& path, std::string* error = nullptr);
    // A component's thread asked for the diagram's shutdown (VELD::Shutdown
    // or VELD::Exit), which can't run on that thread: whoever drives the
    // engine does it. True once per request.
    bool TakeShutdownRequest() { return m_shutdownRequested.exchange(false); }

    void SetCheckLevel(int level) { m_checkLevel = level; }
    void SetKeysState(int keys);
    // How often each exit step ran.
    int PrepareExitCount() const { return m_prepareExitCount; }
    int FinishExitCount() const { return m_finishExitCount; }

    // ---- VELDKernelServices ----
    void LockConfiguration(const char* reason) override;
    void UnlockConfiguration() override;
    int GetKeysState() override;
    VELDSymbol* FindSymbol(const char* name) override;
    void UnregisterSymbol(const char* fullName) override;
    void LockSymbols() override;
    void UnlockSymbols() override;
    bool RegisterInput(VELDInput* input) override;
    bool RegisterOutput(VELDOutput* output) override;
    bool RegisterProperty(VELDProperty* property) override;
    bool RegisterAction(VELDAction* action) override;
    void ModuleOutputCreated(const char* fullName, const char* moduleName, const char* shortName, int index) override;
    void InputRemoved(const char* fullName) override;
    void OutputRemoved(const char* fullName) override;
    void ComponentOutputCreated(const char* fullName, const char* moduleName, const char* shortName, int index) override;
    void ComponentInputCreated(const char* fullName, const char* moduleName, const char* shortName, int index) override;
    void ModuleStateChanged(const char* moduleName, int state) override;
    int InitVirtualClockTime(long timebase, long offset, int speed) override;
    int UninitVirtualClockTime() override;
    int SynchClockCurrentTime() override;
    VELDTimestamp GetVirtualClockTimebase() override;
    VELDTimestamp GetVirtualClockTimebaseX() override;
    void RegisterTimeStateListener(VELDTimeStateListener* listener) override;
    void UnregisterTimeStateListener(VELDTimeStateListener* listener) override;
    void RegisterKeysListener(VELDHMIKeysListener* listener) override;
    void UnregisterKeysListener(VELDHMIKeysListener* listener) override;
    bool InitializeSession() override;
    void StopSendingData() override;
    void StopReplaying() override;
    bool Replay(const char* file) override;
    bool Copy(const char* from, const char* to) override;
    void SetRecording(bool on) override;
    void FromNowOnDataAreUnsorted() override;
    VELDComponent* CreateComponent(const char* model, const char* name, bool start) override;
    bool StartComponent(const char* name) override;
    bool ShutdownComponent(const char* name) override;
    bool KillComponent(const char* name) override;
    bool RenameComponent(const char* oldName, const char* newName) override;
    bool Attach(const char* output, const char* input) override;
    bool Attach2(const char* output, const char* input) override;
    bool Attach(VELDOutput& output, VELDInput& input) override;
    bool Detach(VELDOutput& output, VELDInput& input) override;
    void* ComponentMainThread(void* component) override;
    void* ModuleThread(void* startRecord) override;
    void* ComponentThread(void* startRecord) override;
    void* CoreFunction(const char* name) override;
    VELDComponent* Component(const char* name) override;
    VELDProperty* Property(const char* fullName) override;
    void PrepareExit() override;
    bool Parse(const char* text) override;
    bool ParseFile(const char* path) override;
    bool AsynchParse(const char* text) override;
    bool AsynchParseFile(const char* path) override;
    bool Run() override;
    bool Shutdown() override;
    bool Reset() override;
    bool RegisterPackage(const char* path, const char* name) override;
    bool UnregisterPackage(const char* name) override;
    void RegisterStandardPackages() override;
    bool LoadCoreFunction(const char* path, const char* name) override;
    bool UnloadCoreFunction(const char* name) override;
    void Report(const char* message, int level, int verbosity, bool fromKernel) override;
    VELDEvent* GetShutdownEvent() override;
    bool GetSynchronizer(void* owner, VELDSynchronizer** synchronizer) override;
    void ReleaseSynchronizer(void* owner, VELDSynchronizer** synchronizer) override;
    bool Record(const char* path, const char* what, const char* options, bool append, bool start) override;
    int GetState() override;
    bool IsRecording() override;
    bool IsPaused() override;
    bool IsReplaying() override;
    VELDTimestamp TimeReference() override;
    int TimeSpeed() override;
    int TimeState() override;
    void SetTimeAdapt(int adapt) override;
    void SignalRecordSkipped() override;
    void SignalFifoOverflow(void* output) override;
    VELDTimestamp GetFirstTimestamp() override;
    VELDTimestamp GetLastTimestamp() override;
    int CheckLevel() override;
    bool IsDistributedAsMaster() override;
    bool IsDistributedAsSlave() override;
    void RegisterClock(VELDBaseClock* clock, unsigned char* clockId) override;
    void UnregisterClock(VELDBaseClock* clock) override;
    VELDTimestamp GetSystemAccurateTiming() override;
    int GetAbsoluteTimeSpeed() override;
    void SetAbsoluteTimeSpeed(int speed, int clockId) override;
    unsigned char GetMasterCurrentClockID() override;
    void SignalMasterClockChanged(unsigned char clockId) override;
    unsigned char GetCurrentClockID() override;
    void SetCurrentTime(VELDTimestamp time) override;
    VELDTimestamp CurrentTime(bool a, bool b) override;
    void SetTimeSpeed(int speed) override;
    VELDCondition* GetTimeStateCondition() override;
    void LockTimeState() override;
    void UnlockTimeState() override;
    int GetNbFifoOverflows() override;
    void Play() override;
    void Stop() override;
    void Pause() override;
    void Next() override;
    void Previous() override;
    void Go2Index(int index) override;
    void Go2PreviousIndex() override;
    void Go2NextIndex() override;
    void Record() override;
    bool GetBoolProperty(const char* fullName, bool* ok) override;
    VELDInt64 GetIntegerProperty(const char* fullName, bool* ok) override;
    double GetFloatProperty(const char* fullName, bool* ok) override;
    VELDString GetGlobalConfigValue(const char* key) override;
    VELDString About() override;
    VELDMutex* GlobalOSMutex() override;
    void FinishExit() override;
    VELDEventService* GetEventService() override;

private:
    // Tells once per operation that this engine does not offer it.
    void Unsupported(const char* operation);
    bool RegisterSymbol(const char* fullName, VELDSymbol::Kind kind, VELDModule* module, void* object);
    VELDProperty* FindProperty(const char* fullName);
    // A property of any module read through its owner, with the get callback;
    // false when unknown or of a type that `T` can't hold.
    template <class T>
    bool ReadProperty(const char* fullName, T* value);
    // Reports the reason of a failed kernel operation.
    void ReportFailure(const char* operation, const std::string& reason);
    // A diagram's operation on a named component, its failure reported.
    typedef bool (Diagram::*DiagramOperation)(const std::string& name, std::string* error);
    bool OnComponent(const char* operation, DiagramOperation action, const char* name);
    // The shutdown of the diagram, or a request for it from a component's
    // thread.
    void ShutdownOrRequest();
    // The input or output registered under `fullName`, or null with a
    // report that tells `operation`.
    VELDInput* FindInput(const char* fullName, const char* operation);
    VELDOutput* FindOutput(const char* fullName, const char* operation);
    void* FindElement(const char* fullName, long kind, const char* operation);

    Console m_console;
    SymbolTable m_symbols;
    EventService m_events;
    EngineClock m_clock;
    FifoReaders m_fifoReaders;
    Connections m_connections;
    ComponentThreads m_threads;
    ModuleStates m_moduleStates;
    Packages m_packages;
    Diagram m_diagram;
    VELDEvent m_shutdownEvent;
    std::atomic<bool> m_shutdownRequested;

    ConfigurationLock m_configurationLock;
    VELDMutex m_globalMutex;
    std::atomic<int> m_checkLevel;
    std::atomic<int> m_state;
    std::atomic<int> m_keys;
    std::atomic<int> m_prepareExitCount;
    std::atomic<int> m_finishExitCount;

    std::mutex m_listenersMutex;
    std::vector<VELDHMIKeysListener*> m_keysListeners;

    std::mutex m_unsupportedMutex;
    std::vector<std::string> m_unsupportedTold;

    // Made last, destroyed before the other parts.
    std::unique_ptr<EngineModule> m_engineModule;
};

}  // namespace veldor

#endif
