// The package's link to its engine: the kernel object received by
// VELDPckInit and the internal wrappers of its operations. Components use the
// public face in veld.h instead.
#ifndef VELD_PRIVATE_H
#define VELD_PRIVATE_H

#include "veld_kernel_services.h"

namespace VELDPrivate {

// Null until VELDPckInit has succeeded, and again after Exit. Read without a
// lock: it is written before any component exists.
extern VELDKernelServices* kernel;

// A remaining wait up to this many microseconds is over.
const VELDDelay MinimumWaitTime = 1;

// Reports through the kernel as the kernel itself would, then throws
// VELD::ErrorException. Never returns.
[[noreturn]] void KernelError(const char* message, int verbosity);
// Writes to the engine's console and log. Without a kernel the message goes
// to the standard error stream, so that nothing said is lost.
void Report(const char* message, int level, int verbosity, bool fromKernel);
// The message box of the system, titled "Veldor Engine" for the engine and
// "Veldor" otherwise. The third argument has no effect.
void MessageBox(const char* text, int type, int ignored, bool engine);
// Both exit steps of the kernel, once; harmless without a kernel.
void Exit();

void LockConfiguration(const char* reason);
void UnlockConfiguration();
int GetKeysState();
VELDSymbol* FindSymbol(const char* name);
void UnregisterSymbol(const char* fullName);
void LockSymbols();
void UnlockSymbols();
bool RegisterInput(VELDInput* input);
bool RegisterOutput(VELDOutput* output);
bool RegisterProperty(VELDProperty* property);
bool RegisterAction(VELDAction* action);
void ModuleOutputCreated(const char* fullName, const char* moduleName, const char* shortName, int index);
void InputRemoved(const char* fullName);
void OutputRemoved(const char* fullName);
void ComponentOutputCreated(const char* fullName, const char* moduleName, const char* shortName, int index);
void ComponentInputCreated(const char* fullName, const char* moduleName, const char* shortName, int index);
void ModuleStateChanged(const char* moduleName, int state);

int InitVirtualClockTime(long timebase, long offset, int speed);
int UninitVirtualClockTime();
int SynchClockCurrentTime();
VELDTimestamp GetVirtualClockTimebase();
VELDTimestamp GetVirtualClockTimebaseX();
void RegisterTimeStateListener(VELDTimeStateListener* listener);
void UnregisterTimeStateListener(VELDTimeStateListener* listener);
void RegisterKeysListener(VELDHMIKeysListener* listener);
void UnregisterKeysListener(VELDHMIKeysListener* listener);
void RegisterClock(VELDBaseClock* clock, unsigned char* clockId);
void UnregisterClock(VELDBaseClock* clock);
int GetAbsoluteTimeSpeed();
void SetAbsoluteTimeSpeed(int speed, int clockId);
unsigned char GetMasterCurrentClockID();
void SignalMasterClockChanged(unsigned char clockId);
unsigned char GetCurrentClockID();
VELDCondition* GetTimeStateCondition();
void LockTimeState();
void UnlockTimeState();

// Counts an overflow of the FIFO of `output`; the FIFO's overflow callback.
void SignalFifoOverflow(void* output);
int CheckLevel();
VELDEventService* GetEventService();
VELDEvent* GetShutdownEvent();
VELDMutex* GlobalOSMutex();

// Thread bodies that the engine runs (the argument is the component or the
// start record).
void* ComponentMainThread(void* component);
void* ModuleThread(void* startRecord);
void* ComponentThread(void* startRecord);

// Kernel setup for a host that carries the framework itself (the engine);
// a package gets its kernel through VELDPckInit only.
void SetKernel(VELDKernelServices* k);

}  // namespace VELDPrivate

#endif
