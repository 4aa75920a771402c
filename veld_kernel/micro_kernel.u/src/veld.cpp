#include "veld.h"

#include <dlfcn.h>

#include "veld_component.h"
#include "veld_private.h"

using VELDPrivate::kernel;

namespace VELD {

const VELDStackedString<40> KernelVersion("4.10");
const VELDStackedString<40> VeldorMinorVersion("4");
const VELDStackedString<40> DiagramVersion("4.8.0");
const VELDStackedString<40> ProductName("Veldor");

namespace {

void ReportWithPrefix(const char* prefix, const char* message, int level, int verbosity)
{
    VELDString text(prefix);
    text += message;
    VELDPrivate::Report(text, level, verbosity, false);
}

}  // namespace

void Report(const char* message, int level, int verbosity)
{
    ReportWithPrefix("External report : ", message, level, verbosity);
}
void ReportInfo(const char* message, int verbosity) { ReportWithPrefix("External : ", message, Info, verbosity); }
void ReportWarning(const char* message, int verbosity) { ReportWithPrefix("External : ", message, Warning, verbosity); }
void ReportError(const char* message, int verbosity) { ReportWithPrefix("External : ", message, Error, verbosity); }

void MessageBox(const char* text, int type, int ignored) { VELDPrivate::MessageBox(text, type, ignored, false); }
void Exit() { VELDPrivate::Exit(); }

void StartRecording() { kernel->SetRecording(true); }
void StopRecording() { kernel->SetRecording(false); }
bool RunComponent(const char* name) { return kernel->StartComponent(name); }
void SetIndex() {}

bool ForwardPckInitToLibrary(const VELDDynamicLoader& library, int* result)
{
    if (result) *result = 0x7FFFFFFF;
    if (!library.IsOpen()) {
        ReportError("VELD::ForwardPckInitToLibrary: Dynamic library is not loaded", 0);
        return false;
    }
    typedef int (*PckInit)(void*, int);
    PckInit init = reinterpret_cast<PckInit>(library.LoadSymbol("VELDPckInit"));
    if (!init) {
        ReportError("VELD::ForwardPckInitToLibrary: Failed to load 'VELDPckInit' from the dynamic library", 0);
        return false;
    }
    int value = init(kernel, PackageInterfaceVersion);
    if (result) *result = value;
    if (value == 0) {
        ReportError("VELD::ForwardPckInitToLibrary: VELDPckInit call failed", 0);
        return false;
    }
    return true;
}

// Plain forwards to the operation of the same name.
VELDComponent* CreateComponent(const char* model, const char* name, bool start) { return kernel->CreateComponent(model, name, start); }
bool StartComponent(const char* name) { return kernel->StartComponent(name); }
bool ShutdownComponent(const char* name) { return kernel->ShutdownComponent(name); }
bool KillComponent(const char* name) { return kernel->KillComponent(name); }
bool KillComponent(VELDComponent& component) { return kernel->KillComponent(component.Name()); }
bool RenameComponent(const char* oldName, const char* newName) { return kernel->RenameComponent(oldName, newName); }
bool Attach(const char* output, const char* input) { return kernel->Attach(output, input); }
bool Attach(VELDOutput& output, VELDInput& input) { return kernel->Attach(output, input); }
bool Attach2(const char* output, const char* input) { return kernel->Attach2(output, input); }
bool Detach(VELDOutput& output, VELDInput& input) { return kernel->Detach(output, input); }
void* CoreFunction(const char* name) { return kernel->CoreFunction(name); }
VELDComponent* Component(const char* name) { return kernel->Component(name); }
VELDProperty* Property(const char* fullName) { return kernel->Property(fullName); }
int GetState() { return kernel->GetState(); }
int GetKeysState() { return kernel->GetKeysState(); }
bool InitializeSession() { return kernel->InitializeSession(); }
void StopSendingData() { kernel->StopSendingData(); }
void StopReplaying() { kernel->StopReplaying(); }
bool Replay(const char* file) { return kernel->Replay(file); }
bool Copy(const char* from, const char* to) { return kernel->Copy(from, to); }
void FromNowOnDataAreUnsorted() { kernel->FromNowOnDataAreUnsorted(); }
bool Record(const char* path, const char* what, const char* options, bool append, bool start) { return kernel->Record(path, what, options, append, start); }
void Record() { kernel->Record(); }
bool IsRecording() { return kernel->IsRecording(); }
bool IsReplaying() { return kernel->IsReplaying(); }
void Play() { kernel->Play(); }
void Stop() { kernel->Stop(); }
void Pause() { kernel->Pause(); }
void Next() { kernel->Next(); }
void Previous() { kernel->Previous(); }
void Go2Index(int index) { kernel->Go2Index(index); }
void Go2PreviousIndex() { kernel->Go2PreviousIndex(); }
void Go2NextIndex() { kernel->Go2NextIndex(); }
void SignalRecordSkipped() { kernel->SignalRecordSkipped(); }
int GetNbFifoOverflows() { return kernel->GetNbFifoOverflows(); }
bool Parse(const char* text) { return kernel->Parse(text); }
bool ParseFile(const char* path) { return kernel->ParseFile(path); }
bool AsynchParse(const char* text) { return kernel->AsynchParse(text); }
bool AsynchParseFile(const char* path) { return kernel->AsynchParseFile(path); }
bool Run() { return kernel->Run(); }
bool Shutdown() { return kernel->Shutdown(); }
bool Reset() { return kernel->Reset(); }
bool RegisterPackage(const char* path, const char* name) { return kernel->RegisterPackage(path, name); }
bool UnregisterPackage(const char* name) { return kernel->UnregisterPackage(name); }
void RegisterStandardPackages() { kernel->RegisterStandardPackages(); }
bool LoadCoreFunction(const char* path, const char* name) { return kernel->LoadCoreFunction(path, name); }
bool UnloadCoreFunction(const char* name) { return kernel->UnloadCoreFunction(name); }
VELDTimestamp CurrentTime(bool a, bool b) { return kernel->CurrentTime(a, b); }
void SetCurrentTime(VELDTimestamp time) { kernel->SetCurrentTime(time); }
int TimeSpeed() { return kernel->TimeSpeed(); }
void SetTimeSpeed(int speed) { kernel->SetTimeSpeed(speed); }
int TimeState() { return kernel->TimeState(); }
bool IsPaused() { return kernel->IsPaused(); }
VELDTimestamp TimeReference() { return kernel->TimeReference(); }
VELDTimestamp GetSystemAccurateTiming() { return kernel->GetSystemAccurateTiming(); }
VELDTimestamp GetFirstTimestamp() { return kernel->GetFirstTimestamp(); }
VELDTimestamp GetLastTimestamp() { return kernel->GetLastTimestamp(); }
void SetTimeAdapt(int adapt) { kernel->SetTimeAdapt(adapt); }
bool GetBoolProperty(const char* fullName, bool* ok) { return kernel->GetBoolProperty(fullName, ok); }
VELDInt64 GetIntegerProperty(const char* fullName, bool* ok) { return kernel->GetIntegerProperty(fullName, ok); }
double GetFloatProperty(const char* fullName, bool* ok) { return kernel->GetFloatProperty(fullName, ok); }
VELDString GetGlobalConfigValue(const char* key) { return kernel->GetGlobalConfigValue(key); }
VELDString About() { return kernel->About(); }
bool IsDistributedAsMaster() { return kernel->IsDistributedAsMaster(); }
bool IsDistributedAsSlave() { return kernel->IsDistributedAsSlave(); }
int CheckLevel() { return kernel->CheckLevel(); }
}  // namespace VELD

// ---------------------------------------------------------------------------
// VELDHMIKeysListener

VELDHMIKeysListener::VELDHMIKeysListener(bool registerNow)
{
    if (registerNow) Register();
}

VELDHMIKeysListener::~VELDHMIKeysListener() { Unregister(); }
void VELDHMIKeysListener::Register() { kernel->RegisterKeysListener(this); }
void VELDHMIKeysListener::Unregister() { kernel->UnregisterKeysListener(this); }

// ---------------------------------------------------------------------------
// VELDDynamicLoader

namespace {

// The sanitizer runtimes refuse libraries that bind to themselves first, so
// sanitized builds load without that flag.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
const int kDeepBind = 0;
#else
const int kDeepBind = RTLD_DEEPBIND;
#endif

}  // namespace

bool VELDDynamicLoader::OpenWithFlags(const char* path, int flags)
{
    Close();
    m_handle = dlopen(path, flags);
    if (!m_handle) {
        char* local = VELDIconv::UTF8ToLocale(path);
        if (local) {
            m_handle = dlopen(local, flags);
            VELDIconv::releaseLocale(local);
        }
    }
    if (!m_handle) {
        const char* error = dlerror();
        m_error = error ? error : "";
    }
    return m_handle != nullptr;
}

bool VELDDynamicLoader::Open(const char* path) { return OpenWithFlags(path, RTLD_NOW | kDeepBind); }

bool VELDDynamicLoader::Open(const char* path, bool global)
{
    return OpenWithFlags(path, RTLD_NOW | kDeepBind | (global ? RTLD_GLOBAL : 0));
}

bool VELDDynamicLoader::Close()
{
    if (!m_handle) return true;
    if (dlclose(m_handle) != 0) {
        const char* error = dlerror();
        m_error = error ? error : "";
        return false;
    }
    m_handle = nullptr;
    return true;
}

void* VELDDynamicLoader::LoadSymbol(const char* name) const
{
    if (!m_handle) return nullptr;
    dlerror();
    void* symbol = dlsym(m_handle, name);
    if (!symbol) {
        const char* error = dlerror();
        if (!error) {
            symbol = dlsym(m_handle, name);
            error = symbol ? nullptr : dlerror();
        }
        if (error) m_error = error;
    }
    return symbol;
}
