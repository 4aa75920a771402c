// The engine reaches the kernel services object by position: each operation
// must stand in its slot of the virtual table. In the Itanium ABI a pointer
// to a virtual member function holds 1 + 8 x slot.
#include <gtest/gtest.h>

#include <cstring>
#include <tuple>

#include "veld_kernel_services.h"

namespace {

template <class F>
long Slot(F member)
{
    static_assert(sizeof(F) == 16, "Itanium pointer to member function");
    long raw = 0;
    std::memcpy(&raw, &member, sizeof raw);
    return (raw - 1) / 8;
}

struct Row {
    const char* operation;
    long slot;
    long expected;
};

// One operation, its signature and its slot.
#define S(R, name, args, slot) \
    Row { #name #args, Slot(static_cast<R(VELDKernelServices::*) args>(&VELDKernelServices::name)), slot }

}  // namespace

TEST(KernelServicesLayout, EveryOperationStandsInItsSlot)
{
    const Row rows[] = {
        S(void, LockConfiguration, (const char*), 0), S(void, UnlockConfiguration, (), 1),
        S(int, GetKeysState, (), 13), S(VELDSymbol*, FindSymbol, (const char*), 18),
        S(void, UnregisterSymbol, (const char*), 21), S(void, LockSymbols, (), 22), S(void, UnlockSymbols, (), 23),
        S(bool, RegisterInput, (VELDInput*), 24), S(bool, RegisterOutput, (VELDOutput*), 25),
        S(bool, RegisterProperty, (VELDProperty*), 26), S(bool, RegisterAction, (VELDAction*), 27),
        S(void, ModuleOutputCreated, (const char*, const char*, const char*, int), 29),
        S(void, InputRemoved, (const char*), 30), S(void, OutputRemoved, (const char*), 31),
        S(void, ComponentOutputCreated, (const char*, const char*, const char*, int), 32),
        S(void, ComponentInputCreated, (const char*, const char*, const char*, int), 33),
        S(void, ModuleStateChanged, (const char*, int), 34), S(int, InitVirtualClockTime, (long, long, int), 36),
        S(int, UninitVirtualClockTime, (), 37), S(int, SynchClockCurrentTime, (), 38),
        S(VELDTimestamp, GetVirtualClockTimebase, (), 39), S(VELDTimestamp, GetVirtualClockTimebaseX, (), 40),
        S(void, RegisterTimeStateListener, (VELDTimeStateListener*), 49),
        S(void, UnregisterTimeStateListener, (VELDTimeStateListener*), 50),
        S(void, RegisterKeysListener, (VELDHMIKeysListener*), 53),
        S(void, UnregisterKeysListener, (VELDHMIKeysListener*), 54), S(bool, InitializeSession, (), 57),
        S(void, StopSendingData, (), 58), S(void, StopReplaying, (), 59), S(bool, Replay, (const char*), 60),
        S(bool, Copy, (const char*, const char*), 61), S(void, SetRecording, (bool), 63),
        S(void, FromNowOnDataAreUnsorted, (), 64),
        S(VELDComponent*, CreateComponent, (const char*, const char*, bool), 65),
        S(bool, StartComponent, (const char*), 66), S(bool, ShutdownComponent, (const char*), 67),
        S(bool, KillComponent, (const char*), 68), S(bool, RenameComponent, (const char*, const char*), 69),
        S(bool, Attach, (const char*, const char*), 70), S(bool, Attach2, (const char*, const char*), 71),
        S(bool, Attach, (VELDOutput&, VELDInput&), 72), S(bool, Detach, (VELDOutput&, VELDInput&), 73),
        S(void*, ComponentMainThread, (void*), 74), S(void*, ModuleThread, (void*), 75),
        S(void*, ComponentThread, (void*), 76), S(void*, CoreFunction, (const char*), 77),
        S(VELDComponent*, Component, (const char*), 78), S(VELDProperty*, Property, (const char*), 79),
        S(void, PrepareExit, (), 83), S(bool, Parse, (const char*), 84), S(bool, ParseFile, (const char*), 85),
        S(bool, AsynchParse, (const char*), 86), S(bool, AsynchParseFile, (const char*), 87), S(bool, Run, (), 88),
        S(bool, Shutdown, (), 89), S(bool, Reset, (), 90), S(bool, RegisterPackage, (const char*, const char*), 91),
        S(bool, UnregisterPackage, (const char*), 92), S(void, RegisterStandardPackages, (), 93),
        S(bool, LoadCoreFunction, (const char*, const char*), 94), S(bool, UnloadCoreFunction, (const char*), 95),
        S(void, Report, (const char*, int, int, bool), 96), S(VELDEvent*, GetShutdownEvent, (), 97),
        S(bool, GetSynchronizer, (void*, VELDSynchronizer**), 98),
        S(void, ReleaseSynchronizer, (void*, VELDSynchronizer**), 99),
        S(bool, Record, (const char*, const char*, const char*, bool, bool), 100), S(int, GetState, (), 101),
        S(bool, IsRecording, (), 102), S(bool, IsPaused, (), 103), S(bool, IsReplaying, (), 104),
        S(VELDTimestamp, TimeReference, (), 105), S(int, TimeSpeed, (), 106), S(int, TimeState, (), 107),
        S(void, SetTimeAdapt, (int), 111), S(void, SignalRecordSkipped, (), 112),
        S(void, SignalFifoOverflow, (void*), 113), S(VELDTimestamp, GetFirstTimestamp, (), 114),
        S(VELDTimestamp, GetLastTimestamp, (), 115), S(int, CheckLevel, (), 116),
        S(bool, IsDistributedAsMaster, (), 117), S(bool, IsDistributedAsSlave, (), 118),
        S(void, RegisterClock, (VELDBaseClock*, unsigned char*), 119),
        S(void, UnregisterClock, (VELDBaseClock*), 120), S(VELDTimestamp, GetSystemAccurateTiming, (), 121),
        S(int, GetAbsoluteTimeSpeed, (), 122), S(void, SetAbsoluteTimeSpeed, (int, int), 123),
        S(unsigned char, GetMasterCurrentClockID, (), 124), S(void, SignalMasterClockChanged, (unsigned char), 125),
        S(unsigned char, GetCurrentClockID, (), 126), S(void, SetCurrentTime, (VELDTimestamp), 127),
        S(VELDTimestamp, CurrentTime, (bool, bool), 128), S(void, SetTimeSpeed, (int), 129),
        S(VELDCondition*, GetTimeStateCondition, (), 130), S(void, LockTimeState, (), 131),
        S(void, UnlockTimeState, (), 132), S(int, GetNbFifoOverflows, (), 135), S(void, Play, (), 136),
        S(void, Stop, (), 137), S(void, Pause, (), 138), S(void, Next, (), 139), S(void, Previous, (), 140),
        S(void, Go2Index, (int), 142), S(void, Go2PreviousIndex, (), 143), S(void, Go2NextIndex, (), 144),
        S(void, Record, (), 145), S(bool, GetBoolProperty, (const char*, bool*), 146),
        S(VELDInt64, GetIntegerProperty, (const char*, bool*), 147),
        S(double, GetFloatProperty, (const char*, bool*), 148),
        S(VELDString, GetGlobalConfigValue, (const char*), 151), S(VELDString, About, (), 153),
        S(VELDMutex*, GlobalOSMutex, (), 157), S(void, FinishExit, (), 159),
        S(VELDEventService*, GetEventService, (), 160)
    };
    for (const Row& row : rows) EXPECT_EQ(row.slot, row.expected) << row.operation;
    // And those of the event service.
    EXPECT_EQ(std::make_tuple(Slot(&VELDEventService::SetTrigger), Slot(&VELDEventService::ResetTrigger),
                              Slot(&VELDEventService::WaitForEvents)),
              std::make_tuple(2, 3, 5));
}

TEST(KernelServicesLayout, FindSymbolRecordHoldsTheModuleInItsThirdWord)
{
    VELDSymbol symbol{"a.b", VELDSymbol::PropertySymbol, reinterpret_cast<VELDModule*>(0x1234), nullptr};
    void* words[3];
    std::memcpy(words, &symbol, sizeof words);
    EXPECT_EQ(words[2], reinterpret_cast<void*>(0x1234));
}
