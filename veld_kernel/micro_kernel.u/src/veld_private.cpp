#include "veld_private.h"

#include <cstdio>

#include "veld.h"
#include "veld_constants.h"

namespace VELDPrivate {

VELDKernelServices* kernel = nullptr;

void SetKernel(VELDKernelServices* k) { kernel = k; }

void KernelError(const char* message, int verbosity)
{
    Report(message, VELD::Error, verbosity, true);
    throw VELD::ErrorException;
}

void Report(const char* message, int level, int verbosity, bool fromKernel)
{
    if (kernel) {
        kernel->Report(message, level, verbosity, fromKernel);
        return;
    }
    static const char* const kLevels[] = {"info", "warning", "error", "echo"};
    std::fprintf(stderr, "[%s] %s\n", level >= 0 && level <= 3 ? kLevels[level] : "report", message ? message : "");
}

void MessageBox(const char* text, int type, int, bool engine)
{
    VELD::MsgBox(engine ? "Veldor Engine" : "Veldor", text, type);
}

void Exit()
{
    if (!kernel) return;
    kernel->PrepareExit();
    if (kernel) kernel->FinishExit();
    kernel = nullptr;
}

// Thread bodies: the engine runs them.
void* ComponentMainThread(void* component) { return kernel->ComponentMainThread(component); }
void* ModuleThread(void* startRecord) { return kernel->ModuleThread(startRecord); }
void* ComponentThread(void* startRecord) { return kernel->ComponentThread(startRecord); }

// Plain forwards to the operation of the same name.
void LockConfiguration(const char* reason) { kernel->LockConfiguration(reason); }
void UnlockConfiguration() { kernel->UnlockConfiguration(); }
int GetKeysState() { return kernel->GetKeysState(); }
VELDSymbol* FindSymbol(const char* name) { return kernel->FindSymbol(name); }
void UnregisterSymbol(const char* fullName) { kernel->UnregisterSymbol(fullName); }
void LockSymbols() { kernel->LockSymbols(); }
void UnlockSymbols() { kernel->UnlockSymbols(); }
bool RegisterInput(VELDInput* input) { return kernel->RegisterInput(input); }
bool RegisterOutput(VELDOutput* output) { return kernel->RegisterOutput(output); }
bool RegisterProperty(VELDProperty* property) { return kernel->RegisterProperty(property); }
bool RegisterAction(VELDAction* action) { return kernel->RegisterAction(action); }
void ModuleOutputCreated(const char* fullName, const char* moduleName, const char* shortName, int index) { kernel->ModuleOutputCreated(fullName, moduleName, shortName, index); }
void InputRemoved(const char* fullName) { kernel->InputRemoved(fullName); }
void OutputRemoved(const char* fullName) { kernel->OutputRemoved(fullName); }
void ComponentOutputCreated(const char* fullName, const char* moduleName, const char* shortName, int index) { kernel->ComponentOutputCreated(fullName, moduleName, shortName, index); }
void ComponentInputCreated(const char* fullName, const char* moduleName, const char* shortName, int index) { kernel->ComponentInputCreated(fullName, moduleName, shortName, index); }
void ModuleStateChanged(const char* moduleName, int state) { kernel->ModuleStateChanged(moduleName, state); }
int InitVirtualClockTime(long timebase, long offset, int speed) { return kernel->InitVirtualClockTime(timebase, offset, speed); }
int UninitVirtualClockTime() { return kernel->UninitVirtualClockTime(); }
int SynchClockCurrentTime() { return kernel->SynchClockCurrentTime(); }
VELDTimestamp GetVirtualClockTimebase() { return kernel->GetVirtualClockTimebase(); }
VELDTimestamp GetVirtualClockTimebaseX() { return kernel->GetVirtualClockTimebaseX(); }
void RegisterTimeStateListener(VELDTimeStateListener* listener) { kernel->RegisterTimeStateListener(listener); }
void UnregisterTimeStateListener(VELDTimeStateListener* listener) { kernel->UnregisterTimeStateListener(listener); }
void RegisterKeysListener(VELDHMIKeysListener* listener) { kernel->RegisterKeysListener(listener); }
void UnregisterKeysListener(VELDHMIKeysListener* listener) { kernel->UnregisterKeysListener(listener); }
void RegisterClock(VELDBaseClock* clock, unsigned char* clockId) { kernel->RegisterClock(clock, clockId); }
void UnregisterClock(VELDBaseClock* clock) { kernel->UnregisterClock(clock); }
int GetAbsoluteTimeSpeed() { return kernel->GetAbsoluteTimeSpeed(); }
void SetAbsoluteTimeSpeed(int speed, int clockId) { kernel->SetAbsoluteTimeSpeed(speed, clockId); }
unsigned char GetMasterCurrentClockID() { return kernel->GetMasterCurrentClockID(); }
void SignalMasterClockChanged(unsigned char clockId) { kernel->SignalMasterClockChanged(clockId); }
unsigned char GetCurrentClockID() { return kernel->GetCurrentClockID(); }
VELDCondition* GetTimeStateCondition() { return kernel->GetTimeStateCondition(); }
void LockTimeState() { kernel->LockTimeState(); }
void UnlockTimeState() { kernel->UnlockTimeState(); }
void SignalFifoOverflow(void* output) { kernel->SignalFifoOverflow(output); }
int CheckLevel() { return kernel->CheckLevel(); }
VELDEventService* GetEventService() { return kernel->GetEventService(); }
VELDEvent* GetShutdownEvent() { return kernel->GetShutdownEvent(); }
VELDMutex* GlobalOSMutex() { return kernel->GlobalOSMutex(); }
}  // namespace VELDPrivate
