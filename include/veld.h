// The public face of the engine for components: reports, time, the graph's
// elements by name, global properties, threads, and the identity of the
// framework.
#ifndef VELD_H
#define VELD_H

#include "veld_constants.h"
#include "veld_containers.h"
#include "veld_kernel_services.h"
#include "veld_os_helpers.h"
#include "veld_string.h"

class VELDDynamicLoader;
class VELDEnumStruct;

namespace VELD {

// --- identity ----------------------------------------------------------------
extern const VELDStackedString<40> KernelVersion;       // "4.10"
extern const VELDStackedString<40> VeldorMinorVersion;  // "4"
extern const VELDStackedString<40> DiagramVersion;      // "4.8.0"
extern const VELDStackedString<40> ProductName;         // "Veldor"

// --- reports -------------------------------------------------------------------
// "External report : <message>" at the given level.
void Report(const char* message, int level, int verbosity);
// "External : <message>" at Info, Warning and Error.
void ReportInfo(const char* message, int verbosity);
void ReportWarning(const char* message, int verbosity);
void ReportError(const char* message, int verbosity);
void MessageBox(const char* text, int type, int ignored);
void Exit();

// --- the graph -------------------------------------------------------------------
VELDComponent* CreateComponent(const char* model, const char* name, bool start);
bool StartComponent(const char* name);
bool RunComponent(const char* name);
bool ShutdownComponent(const char* name);
bool KillComponent(const char* name);
bool KillComponent(VELDComponent& component);
bool RenameComponent(const char* oldName, const char* newName);
bool Attach(const char* output, const char* input);
bool Attach2(const char* output, const char* input);
bool Attach(VELDOutput& output, VELDInput& input);
bool Detach(VELDOutput& output, VELDInput& input);
void* CoreFunction(const char* name);
VELDComponent* Component(const char* name);
VELDProperty* Property(const char* fullName);
int GetState();
int GetKeysState();

// --- session, replay and record ---------------------------------------------------
bool InitializeSession();
void StopSendingData();
void StopReplaying();
bool Replay(const char* file);
bool Copy(const char* from, const char* to);
void StartRecording();
void StopRecording();
void FromNowOnDataAreUnsorted();
bool Record(const char* path, const char* what, const char* options, bool append, bool start);
void Record();
bool IsRecording();
bool IsReplaying();
void Play();
void Stop();
void Pause();
void Next();
void Previous();
void Go2Index(int index);
void Go2PreviousIndex();
void Go2NextIndex();
// Kept in the interface; does nothing.
void SetIndex();
void SignalRecordSkipped();
int GetNbFifoOverflows();

// --- scripts and packages ----------------------------------------------------------
bool Parse(const char* text);
bool ParseFile(const char* path);
bool AsynchParse(const char* text);
bool AsynchParseFile(const char* path);
bool Run();
bool Shutdown();
bool Reset();
bool RegisterPackage(const char* path, const char* name);
bool UnregisterPackage(const char* name);
void RegisterStandardPackages();
bool LoadCoreFunction(const char* path, const char* name);
bool UnloadCoreFunction(const char* name);
// Lets a library that a component loaded at run time share this package's
// kernel. `result`, when given, receives VELDPckInit's result (0x7FFFFFFF
// when it was not called).
bool ForwardPckInitToLibrary(const VELDDynamicLoader& library, int* result);

// --- time ---------------------------------------------------------------------------
VELDTimestamp CurrentTime(bool a, bool b);
void SetCurrentTime(VELDTimestamp time);
int TimeSpeed();
void SetTimeSpeed(int speed);
int TimeState();
bool IsPaused();
VELDTimestamp TimeReference();
// The system's monotonic time in microseconds, unrelated to replay.
VELDTimestamp GetSystemAccurateTiming();
VELDTimestamp GetFirstTimestamp();
VELDTimestamp GetLastTimestamp();
void SetTimeAdapt(int adapt);

// --- memory ---------------------------------------------------------------------------
// The payload blocks of outputs: aligned heap blocks, null on failure.
void* AllocSharedMemory(std::size_t bytes);
void FreeSharedMemory(void* block);

// --- global properties ----------------------------------------------------------------
bool GetBoolProperty(const char* fullName, bool* ok);
VELDInt64 GetIntegerProperty(const char* fullName, bool* ok);
double GetFloatProperty(const char* fullName, bool* ok);
// A string or enum property of any module, read under the symbols' lock.
// Unknown or of another type: *ok false when `ok` is given, otherwise a
// report; the result is then empty.
VELDString GetStringProperty(const char* fullName, bool* ok);
VELDEnumStruct GetEnumsProperty(const char* fullName, bool* ok);
VELDString GetGlobalConfigValue(const char* key);
VELDString About();
bool IsDistributedAsMaster();
bool IsDistributedAsSlave();
int CheckLevel();

}  // namespace VELD

// A listener of the HMI keys (VELD::VCRKeyPlay and its companions). The
// engine calls CallbackKeysChanged; no call comes after Unregister returns.
class VELDHMIKeysListener {
public:
    explicit VELDHMIKeysListener(bool registerNow);
    VELDHMIKeysListener(const VELDHMIKeysListener&) = delete;
    VELDHMIKeysListener& operator=(const VELDHMIKeysListener&) = delete;
    virtual ~VELDHMIKeysListener();
    virtual void CallbackKeysChanged(int keys) = 0;

    void Register();
    void Unregister();
};

// A thin value over the system's loader of shared objects.
class VELDDynamicLoader {
public:
    VELDDynamicLoader() : m_handle(nullptr) {}

    // Loads now and binds the library to its own symbols first; retries once
    // with the path converted from UTF-8 to the locale's encoding.
    bool Open(const char* path);
    // The same, with the library's symbols made global when asked.
    bool Open(const char* path, bool global);
    // True when nothing is open afterwards.
    bool Close();
    bool IsOpen() const { return m_handle != nullptr; }
    void* LoadSymbol(const char* name) const;
    const char* GetErrorMessage() const { return m_error; }
    void* Handle() const { return m_handle; }

private:
    bool OpenWithFlags(const char* path, int flags);

    void* m_handle;
    mutable VELDString m_error;
};

#endif
