// The kernel services object: everything a package needs from the engine
// that runs it. The package never implements it; it receives one object in
// VELDPckInit and reaches every operation by its position in the virtual
// table. The order of the operations below, the unused slots included, is
// therefore part of the contract between a package and any engine, and must
// never change.
#ifndef VELD_KERNEL_SERVICES_H
#define VELD_KERNEL_SERVICES_H

#include "veld_string.h"
#include "veld_types.h"

class VELDAction;
class VELDBaseClock;
class VELDComponent;
class VELDCondition;
class VELDEvent;
class VELDHMIKeysListener;
class VELDInput;
class VELDModule;
class VELDMutex;
class VELDOutput;
class VELDProperty;
class VELDSynchronizer;
class VELDTimeStateListener;

// A registered name as FindSymbol returns it. The third word is the owning
// module; what the object is depends on the kind.
struct VELDSymbol {
    enum Kind { InputSymbol = 0, OutputSymbol = 1, PropertySymbol = 2, ActionSymbol = 3, OtherSymbol = 4 };

    const char* name;
    long kind;
    VELDModule* module;
    void* object;
};

// The engine's event service, also reached by position.
class VELDEventService {
public:
    virtual void Unused0() {}  // slot 0
    virtual void Unused1() {}  // slot 1
    // Sets the event at an absolute time of the monotonic clock, in
    // microseconds. False only when the service has no room left.
    virtual bool SetTrigger(VELDEvent* event, VELDTimestamp when) = 0;  // slot 2
    // Cancels a pending trigger; also called when an event is destroyed.
    virtual void ResetTrigger(VELDEvent* event) = 0;  // slot 3
    virtual void Unused4() {}  // slot 4
    // Waits until one of the events is set and returns the lowest index set,
    // or VELD::TimeOut after `timeout` microseconds (VELD::Infinite: no limit).
    virtual int WaitForEvents(int count, VELDEvent** events, VELDDelay timeout) = 0;  // slot 5

protected:
    ~VELDEventService() {}
};

class VELDKernelServices {
public:
    virtual void LockConfiguration(const char* reason) = 0;  // slot 0
    virtual void UnlockConfiguration() = 0;  // slot 1
    virtual void Unused2() {}  // slot 2, never called by a package
    virtual void Unused3() {}  // slot 3, never called by a package
    virtual void Unused4() {}  // slot 4, never called by a package
    virtual void Unused5() {}  // slot 5, never called by a package
    virtual void Unused6() {}  // slot 6, never called by a package
    virtual void Unused7() {}  // slot 7, never called by a package
    virtual void Unused8() {}  // slot 8, never called by a package
    virtual void Unused9() {}  // slot 9, never called by a package
    virtual void Unused10() {}  // slot 10, never called by a package
    virtual void Unused11() {}  // slot 11, never called by a package
    virtual void Unused12() {}  // slot 12, never called by a package
    virtual int GetKeysState() = 0;  // slot 13
    virtual void Unused14() {}  // slot 14, never called by a package
    virtual void Unused15() {}  // slot 15, never called by a package
    virtual void Unused16() {}  // slot 16, never called by a package
    virtual void Unused17() {}  // slot 17, never called by a package
    virtual VELDSymbol* FindSymbol(const char* name) = 0;  // slot 18
    virtual void Unused19() {}  // slot 19, never called by a package
    virtual void Unused20() {}  // slot 20, never called by a package
    virtual void UnregisterSymbol(const char* fullName) = 0;  // slot 21
    virtual void LockSymbols() = 0;  // slot 22
    virtual void UnlockSymbols() = 0;  // slot 23
    virtual bool RegisterInput(VELDInput* input) = 0;  // slot 24
    virtual bool RegisterOutput(VELDOutput* output) = 0;  // slot 25
    virtual bool RegisterProperty(VELDProperty* property) = 0;  // slot 26
    virtual bool RegisterAction(VELDAction* action) = 0;  // slot 27
    virtual void Unused28() {}  // slot 28, never called by a package
    virtual void ModuleOutputCreated(const char* fullName, const char* moduleName, const char* shortName, int index) = 0;  // slot 29
    virtual void InputRemoved(const char* fullName) = 0;  // slot 30
    virtual void OutputRemoved(const char* fullName) = 0;  // slot 31
    virtual void ComponentOutputCreated(const char* fullName, const char* moduleName, const char* shortName, int index) = 0;  // slot 32
    virtual void ComponentInputCreated(const char* fullName, const char* moduleName, const char* shortName, int index) = 0;  // slot 33
    virtual void ModuleStateChanged(const char* moduleName, int state) = 0;  // slot 34
    virtual void Unused35() {}  // slot 35, never called by a package
    virtual int InitVirtualClockTime(long timebase, long offset, int speed) = 0;  // slot 36
    virtual int UninitVirtualClockTime() = 0;  // slot 37
    virtual int SynchClockCurrentTime() = 0;  // slot 38
    virtual VELDTimestamp GetVirtualClockTimebase() = 0;  // slot 39
    virtual VELDTimestamp GetVirtualClockTimebaseX() = 0;  // slot 40
    virtual void Unused41() {}  // slot 41, never called by a package
    virtual void Unused42() {}  // slot 42, never called by a package
    virtual void Unused43() {}  // slot 43, never called by a package
    virtual void Unused44() {}  // slot 44, never called by a package
    virtual void Unused45() {}  // slot 45, never called by a package
    virtual void Unused46() {}  // slot 46, never called by a package
    virtual void Unused47() {}  // slot 47, never called by a package
    virtual void Unused48() {}  // slot 48, never called by a package
    virtual void RegisterTimeStateListener(VELDTimeStateListener* listener) = 0;  // slot 49
    virtual void UnregisterTimeStateListener(VELDTimeStateListener* listener) = 0;  // slot 50
    virtual void Unused51() {}  // slot 51, never called by a package
    virtual void Unused52() {}  // slot 52, never called by a package
    virtual void RegisterKeysListener(VELDHMIKeysListener* listener) = 0;  // slot 53
    virtual void UnregisterKeysListener(VELDHMIKeysListener* listener) = 0;  // slot 54
    virtual void Unused55() {}  // slot 55, never called by a package
    virtual void Unused56() {}  // slot 56, never called by a package
    virtual bool InitializeSession() = 0;  // slot 57
    virtual void StopSendingData() = 0;  // slot 58
    virtual void StopReplaying() = 0;  // slot 59
    virtual bool Replay(const char* file) = 0;  // slot 60
    virtual bool Copy(const char* from, const char* to) = 0;  // slot 61
    virtual void Unused62() {}  // slot 62, never called by a package
    virtual void SetRecording(bool on) = 0;  // slot 63
    virtual void FromNowOnDataAreUnsorted() = 0;  // slot 64
    virtual VELDComponent* CreateComponent(const char* model, const char* name, bool start) = 0;  // slot 65
    virtual bool StartComponent(const char* name) = 0;  // slot 66
    virtual bool ShutdownComponent(const char* name) = 0;  // slot 67
    virtual bool KillComponent(const char* name) = 0;  // slot 68
    virtual bool RenameComponent(const char* oldName, const char* newName) = 0;  // slot 69
    virtual bool Attach(const char* output, const char* input) = 0;  // slot 70
    virtual bool Attach2(const char* output, const char* input) = 0;  // slot 71
    virtual bool Attach(VELDOutput& output, VELDInput& input) = 0;  // slot 72
    virtual bool Detach(VELDOutput& output, VELDInput& input) = 0;  // slot 73
    virtual void* ComponentMainThread(void* component) = 0;  // slot 74
    virtual void* ModuleThread(void* startRecord) = 0;  // slot 75
    virtual void* ComponentThread(void* startRecord) = 0;  // slot 76
    virtual void* CoreFunction(const char* name) = 0;  // slot 77
    virtual VELDComponent* Component(const char* name) = 0;  // slot 78
    virtual VELDProperty* Property(const char* fullName) = 0;  // slot 79
    virtual void Unused80() {}  // slot 80, never called by a package
    virtual void Unused81() {}  // slot 81, never called by a package
    virtual void Unused82() {}  // slot 82, never called by a package
    virtual void PrepareExit() = 0;  // slot 83
    virtual bool Parse(const char* text) = 0;  // slot 84
    virtual bool ParseFile(const char* path) = 0;  // slot 85
    virtual bool AsynchParse(const char* text) = 0;  // slot 86
    virtual bool AsynchParseFile(const char* path) = 0;  // slot 87
    virtual bool Run() = 0;  // slot 88
    virtual bool Shutdown() = 0;  // slot 89
    virtual bool Reset() = 0;  // slot 90
    virtual bool RegisterPackage(const char* path, const char* name) = 0;  // slot 91
    virtual bool UnregisterPackage(const char* name) = 0;  // slot 92
    virtual void RegisterStandardPackages() = 0;  // slot 93
    virtual bool LoadCoreFunction(const char* path, const char* name) = 0;  // slot 94
    virtual bool UnloadCoreFunction(const char* name) = 0;  // slot 95
    virtual void Report(const char* message, int level, int verbosity, bool fromKernel) = 0;  // slot 96
    virtual VELDEvent* GetShutdownEvent() = 0;  // slot 97
    virtual bool GetSynchronizer(void* owner, VELDSynchronizer** synchronizer) = 0;  // slot 98
    virtual void ReleaseSynchronizer(void* owner, VELDSynchronizer** synchronizer) = 0;  // slot 99
    virtual bool Record(const char* path, const char* what, const char* options, bool append, bool start) = 0;  // slot 100
    virtual int GetState() = 0;  // slot 101
    virtual bool IsRecording() = 0;  // slot 102
    virtual bool IsPaused() = 0;  // slot 103
    virtual bool IsReplaying() = 0;  // slot 104
    virtual VELDTimestamp TimeReference() = 0;  // slot 105
    virtual int TimeSpeed() = 0;  // slot 106
    virtual int TimeState() = 0;  // slot 107
    virtual void Unused108() {}  // slot 108, never called by a package
    virtual void Unused109() {}  // slot 109, never called by a package
    virtual void Unused110() {}  // slot 110, never called by a package
    virtual void SetTimeAdapt(int adapt) = 0;  // slot 111
    virtual void SignalRecordSkipped() = 0;  // slot 112
    virtual void SignalFifoOverflow(void* output) = 0;  // slot 113
    virtual VELDTimestamp GetFirstTimestamp() = 0;  // slot 114
    virtual VELDTimestamp GetLastTimestamp() = 0;  // slot 115
    virtual int CheckLevel() = 0;  // slot 116
    virtual bool IsDistributedAsMaster() = 0;  // slot 117
    virtual bool IsDistributedAsSlave() = 0;  // slot 118
    virtual void RegisterClock(VELDBaseClock* clock, unsigned char* clockId) = 0;  // slot 119
    virtual void UnregisterClock(VELDBaseClock* clock) = 0;  // slot 120
    virtual VELDTimestamp GetSystemAccurateTiming() = 0;  // slot 121
    virtual int GetAbsoluteTimeSpeed() = 0;  // slot 122
    virtual void SetAbsoluteTimeSpeed(int speed, int clockId) = 0;  // slot 123
    virtual unsigned char GetMasterCurrentClockID() = 0;  // slot 124
    virtual void SignalMasterClockChanged(unsigned char clockId) = 0;  // slot 125
    virtual unsigned char GetCurrentClockID() = 0;  // slot 126
    virtual void SetCurrentTime(VELDTimestamp time) = 0;  // slot 127
    virtual VELDTimestamp CurrentTime(bool a, bool b) = 0;  // slot 128
    virtual void SetTimeSpeed(int speed) = 0;  // slot 129
    virtual VELDCondition* GetTimeStateCondition() = 0;  // slot 130
    virtual void LockTimeState() = 0;  // slot 131
    virtual void UnlockTimeState() = 0;  // slot 132
    virtual void Unused133() {}  // slot 133, never called by a package
    virtual void Unused134() {}  // slot 134, never called by a package
    virtual int GetNbFifoOverflows() = 0;  // slot 135
    virtual void Play() = 0;  // slot 136
    virtual void Stop() = 0;  // slot 137
    virtual void Pause() = 0;  // slot 138
    virtual void Next() = 0;  // slot 139
    virtual void Previous() = 0;  // slot 140
    virtual void Unused141() {}  // slot 141, never called by a package
    virtual void Go2Index(int index) = 0;  // slot 142
    virtual void Go2PreviousIndex() = 0;  // slot 143
    virtual void Go2NextIndex() = 0;  // slot 144
    virtual void Record() = 0;  // slot 145
    virtual bool GetBoolProperty(const char* fullName, bool* ok) = 0;  // slot 146
    virtual VELDInt64 GetIntegerProperty(const char* fullName, bool* ok) = 0;  // slot 147
    virtual double GetFloatProperty(const char* fullName, bool* ok) = 0;  // slot 148
    virtual void Unused149() {}  // slot 149, never called by a package
    virtual void Unused150() {}  // slot 150, never called by a package
    virtual VELDString GetGlobalConfigValue(const char* key) = 0;  // slot 151
    virtual void Unused152() {}  // slot 152, never called by a package
    virtual VELDString About() = 0;  // slot 153
    virtual void Unused154() {}  // slot 154, never called by a package
    virtual void Unused155() {}  // slot 155, never called by a package
    virtual void Unused156() {}  // slot 156, never called by a package
    virtual VELDMutex* GlobalOSMutex() = 0;  // slot 157
    virtual void Unused158() {}  // slot 158, never called by a package
    virtual void FinishExit() = 0;  // slot 159
    virtual VELDEventService* GetEventService() = 0;  // slot 160

protected:
    // The engine owns its kernel object; nobody deletes it through this type.
    ~VELDKernelServices() {}
};

#endif
