// The engine reaches the kernel services object by position: each operation
// must stand in its slot of the virtual table. In the Itanium ABI a pointer
// to a virtual member function holds 1 + 8 x slot.
#include <gtest/gtest.h>

#include <cstring>

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

}  // namespace

TEST(KernelServicesLayout, EveryOperationStandsInItsSlot)
{
    const Row rows[] = {
    {"LockConfiguration(const char*)", Slot(static_cast<void (VELDKernelServices::*)(const char*)>(&VELDKernelServices::LockConfiguration)), 0},
    {"UnlockConfiguration()", Slot(static_cast<void (VELDKernelServices::*)()>(&VELDKernelServices::UnlockConfiguration)), 1},
    {"GetKeysState()", Slot(static_cast<int (VELDKernelServices::*)()>(&VELDKernelServices::GetKeysState)), 13},
    {"FindSymbol(const char*)", Slot(static_cast<VELDSymbol* (VELDKernelServices::*)(const char*)>(&VELDKernelServices::FindSymbol)), 18},
    {"UnregisterSymbol(const char*)", Slot(static_cast<void (VELDKernelServices::*)(const char*)>(&VELDKernelServices::UnregisterSymbol)), 21},
    {"LockSymbols()", Slot(static_cast<void (VELDKernelServices::*)()>(&VELDKernelServices::LockSymbols)), 22},
    {"UnlockSymbols()", Slot(static_cast<void (VELDKernelServices::*)()>(&VELDKernelServices::UnlockSymbols)), 23},
    {"RegisterInput(VELDInput*)", Slot(static_cast<bool (VELDKernelServices::*)(VELDInput*)>(&VELDKernelServices::RegisterInput)), 24},
    {"RegisterOutput(VELDOutput*)", Slot(static_cast<bool (VELDKernelServices::*)(VELDOutput*)>(&VELDKernelServices::RegisterOutput)), 25},
    {"RegisterProperty(VELDProperty*)", Slot(static_cast<bool (VELDKernelServices::*)(VELDProperty*)>(&VELDKernelServices::RegisterProperty)), 26},
    {"RegisterAction(VELDAction*)", Slot(static_cast<bool (VELDKernelServices::*)(VELDAction*)>(&VELDKernelServices::RegisterAction)), 27},
    {"ModuleOutputCreated(const char*, const char*, const char*, int)", Slot(static_cast<void (VELDKernelServices::*)(const char*, const char*, const char*, int)>(&VELDKernelServices::ModuleOutputCreated)), 29},
    {"InputRemoved(const char*)", Slot(static_cast<void (VELDKernelServices::*)(const char*)>(&VELDKernelServices::InputRemoved)), 30},
    {"OutputRemoved(const char*)", Slot(static_cast<void (VELDKernelServices::*)(const char*)>(&VELDKernelServices::OutputRemoved)), 31},
    {"ComponentOutputCreated(const char*, const char*, const char*, int)", Slot(static_cast<void (VELDKernelServices::*)(const char*, const char*, const char*, int)>(&VELDKernelServices::ComponentOutputCreated)), 32},
    {"ComponentInputCreated(const char*, const char*, const char*, int)", Slot(static_cast<void (VELDKernelServices::*)(const char*, const char*, const char*, int)>(&VELDKernelServices::ComponentInputCreated)), 33},
    {"ModuleStateChanged(const char*, int)", Slot(static_cast<void (VELDKernelServices::*)(const char*, int)>(&VELDKernelServices::ModuleStateChanged)), 34},
    {"InitVirtualClockTime(long, long, int)", Slot(static_cast<int (VELDKernelServices::*)(long, long, int)>(&VELDKernelServices::InitVirtualClockTime)), 36},
    {"UninitVirtualClockTime()", Slot(static_cast<int (VELDKernelServices::*)()>(&VELDKernelServices::UninitVirtualClockTime)), 37},
    {"SynchClockCurrentTime()", Slot(static_cast<int (VELDKernelServices::*)()>(&VELDKernelServices::SynchClockCurrentTime)), 38},
    {"GetVirtualClockTimebase()", Slot(static_cast<VELDTimestamp (VELDKernelServices::*)()>(&VELDKernelServices::GetVirtualClockTimebase)), 39},
    {"GetVirtualClockTimebaseX()", Slot(static_cast<VELDTimestamp (VELDKernelServices::*)()>(&VELDKernelServices::GetVirtualClockTimebaseX)), 40},
    {"RegisterTimeStateListener(VELDTimeStateListener*)", Slot(static_cast<void (VELDKernelServices::*)(VELDTimeStateListener*)>(&VELDKernelServices::RegisterTimeStateListener)), 49},
    {"UnregisterTimeStateListener(VELDTimeStateListener*)", Slot(static_cast<void (VELDKernelServices::*)(VELDTimeStateListener*)>(&VELDKernelServices::UnregisterTimeStateListener)), 50},
    {"RegisterKeysListener(VELDHMIKeysListener*)", Slot(static_cast<void (VELDKernelServices::*)(VELDHMIKeysListener*)>(&VELDKernelServices::RegisterKeysListener)), 53},
    {"UnregisterKeysListener(VELDHMIKeysListener*)", Slot(static_cast<void (VELDKernelServices::*)(VELDHMIKeysListener*)>(&VELDKernelServices::UnregisterKeysListener)), 54},
    {"InitializeSession()", Slot(static_cast<bool (VELDKernelServices::*)()>(&VELDKernelServices::InitializeSession)), 57},
    {"StopSendingData()", Slot(static_cast<void (VELDKernelServices::*)()>(&VELDKernelServices::StopSendingData)), 58},
    {"StopReplaying()", Slot(static_cast<void (VELDKernelServices::*)()>(&VELDKernelServices::StopReplaying)), 59},
    {"Replay(const char*)", Slot(static_cast<bool (VELDKernelServices::*)(const char*)>(&VELDKernelServices::Replay)), 60},
    {"Copy(const char*, const char*)", Slot(static_cast<bool (VELDKernelServices::*)(const char*, const char*)>(&VELDKernelServices::Copy)), 61},
    {"SetRecording(bool)", Slot(static_cast<void (VELDKernelServices::*)(bool)>(&VELDKernelServices::SetRecording)), 63},
    {"FromNowOnDataAreUnsorted()", Slot(static_cast<void (VELDKernelServices::*)()>(&VELDKernelServices::FromNowOnDataAreUnsorted)), 64},
    {"CreateComponent(const char*, const char*, bool)", Slot(static_cast<VELDComponent* (VELDKernelServices::*)(const char*, const char*, bool)>(&VELDKernelServices::CreateComponent)), 65},
    {"StartComponent(const char*)", Slot(static_cast<bool (VELDKernelServices::*)(const char*)>(&VELDKernelServices::StartComponent)), 66},
    {"ShutdownComponent(const char*)", Slot(static_cast<bool (VELDKernelServices::*)(const char*)>(&VELDKernelServices::ShutdownComponent)), 67},
    {"KillComponent(const char*)", Slot(static_cast<bool (VELDKernelServices::*)(const char*)>(&VELDKernelServices::KillComponent)), 68},
    {"RenameComponent(const char*, const char*)", Slot(static_cast<bool (VELDKernelServices::*)(const char*, const char*)>(&VELDKernelServices::RenameComponent)), 69},
    {"Attach(const char*, const char*)", Slot(static_cast<bool (VELDKernelServices::*)(const char*, const char*)>(&VELDKernelServices::Attach)), 70},
    {"Attach2(const char*, const char*)", Slot(static_cast<bool (VELDKernelServices::*)(const char*, const char*)>(&VELDKernelServices::Attach2)), 71},
    {"Attach(VELDOutput&, VELDInput&)", Slot(static_cast<bool (VELDKernelServices::*)(VELDOutput&, VELDInput&)>(&VELDKernelServices::Attach)), 72},
    {"Detach(VELDOutput&, VELDInput&)", Slot(static_cast<bool (VELDKernelServices::*)(VELDOutput&, VELDInput&)>(&VELDKernelServices::Detach)), 73},
    {"ComponentMainThread(void*)", Slot(static_cast<void* (VELDKernelServices::*)(void*)>(&VELDKernelServices::ComponentMainThread)), 74},
    {"ModuleThread(void*)", Slot(static_cast<void* (VELDKernelServices::*)(void*)>(&VELDKernelServices::ModuleThread)), 75},
    {"ComponentThread(void*)", Slot(static_cast<void* (VELDKernelServices::*)(void*)>(&VELDKernelServices::ComponentThread)), 76},
    {"CoreFunction(const char*)", Slot(static_cast<void* (VELDKernelServices::*)(const char*)>(&VELDKernelServices::CoreFunction)), 77},
    {"Component(const char*)", Slot(static_cast<VELDComponent* (VELDKernelServices::*)(const char*)>(&VELDKernelServices::Component)), 78},
    {"Property(const char*)", Slot(static_cast<VELDProperty* (VELDKernelServices::*)(const char*)>(&VELDKernelServices::Property)), 79},
    {"PrepareExit()", Slot(static_cast<void (VELDKernelServices::*)()>(&VELDKernelServices::PrepareExit)), 83},
    {"Parse(const char*)", Slot(static_cast<bool (VELDKernelServices::*)(const char*)>(&VELDKernelServices::Parse)), 84},
    {"ParseFile(const char*)", Slot(static_cast<bool (VELDKernelServices::*)(const char*)>(&VELDKernelServices::ParseFile)), 85},
    {"AsynchParse(const char*)", Slot(static_cast<bool (VELDKernelServices::*)(const char*)>(&VELDKernelServices::AsynchParse)), 86},
    {"AsynchParseFile(const char*)", Slot(static_cast<bool (VELDKernelServices::*)(const char*)>(&VELDKernelServices::AsynchParseFile)), 87},
    {"Run()", Slot(static_cast<bool (VELDKernelServices::*)()>(&VELDKernelServices::Run)), 88},
    {"Shutdown()", Slot(static_cast<bool (VELDKernelServices::*)()>(&VELDKernelServices::Shutdown)), 89},
    {"Reset()", Slot(static_cast<bool (VELDKernelServices::*)()>(&VELDKernelServices::Reset)), 90},
    {"RegisterPackage(const char*, const char*)", Slot(static_cast<bool (VELDKernelServices::*)(const char*, const char*)>(&VELDKernelServices::RegisterPackage)), 91},
    {"UnregisterPackage(const char*)", Slot(static_cast<bool (VELDKernelServices::*)(const char*)>(&VELDKernelServices::UnregisterPackage)), 92},
    {"RegisterStandardPackages()", Slot(static_cast<void (VELDKernelServices::*)()>(&VELDKernelServices::RegisterStandardPackages)), 93},
    {"LoadCoreFunction(const char*, const char*)", Slot(static_cast<bool (VELDKernelServices::*)(const char*, const char*)>(&VELDKernelServices::LoadCoreFunction)), 94},
    {"UnloadCoreFunction(const char*)", Slot(static_cast<bool (VELDKernelServices::*)(const char*)>(&VELDKernelServices::UnloadCoreFunction)), 95},
    {"Report(const char*, int, int, bool)", Slot(static_cast<void (VELDKernelServices::*)(const char*, int, int, bool)>(&VELDKernelServices::Report)), 96},
    {"GetShutdownEvent()", Slot(static_cast<VELDEvent* (VELDKernelServices::*)()>(&VELDKernelServices::GetShutdownEvent)), 97},
    {"GetSynchronizer(void*, VELDSynchronizer**)", Slot(static_cast<bool (VELDKernelServices::*)(void*, VELDSynchronizer**)>(&VELDKernelServices::GetSynchronizer)), 98},
    {"ReleaseSynchronizer(void*, VELDSynchronizer**)", Slot(static_cast<void (VELDKernelServices::*)(void*, VELDSynchronizer**)>(&VELDKernelServices::ReleaseSynchronizer)), 99},
    {"Record(const char*, const char*, const char*, bool, bool)", Slot(static_cast<bool (VELDKernelServices::*)(const char*, const char*, const char*, bool, bool)>(&VELDKernelServices::Record)), 100},
    {"GetState()", Slot(static_cast<int (VELDKernelServices::*)()>(&VELDKernelServices::GetState)), 101},
    {"IsRecording()", Slot(static_cast<bool (VELDKernelServices::*)()>(&VELDKernelServices::IsRecording)), 102},
    {"IsPaused()", Slot(static_cast<bool (VELDKernelServices::*)()>(&VELDKernelServices::IsPaused)), 103},
    {"IsReplaying()", Slot(static_cast<bool (VELDKernelServices::*)()>(&VELDKernelServices::IsReplaying)), 104},
    {"TimeReference()", Slot(static_cast<VELDTimestamp (VELDKernelServices::*)()>(&VELDKernelServices::TimeReference)), 105},
    {"TimeSpeed()", Slot(static_cast<int (VELDKernelServices::*)()>(&VELDKernelServices::TimeSpeed)), 106},
    {"TimeState()", Slot(static_cast<int (VELDKernelServices::*)()>(&VELDKernelServices::TimeState)), 107},
    {"SetTimeAdapt(int)", Slot(static_cast<void (VELDKernelServices::*)(int)>(&VELDKernelServices::SetTimeAdapt)), 111},
    {"SignalRecordSkipped()", Slot(static_cast<void (VELDKernelServices::*)()>(&VELDKernelServices::SignalRecordSkipped)), 112},
    {"SignalFifoOverflow(void*)", Slot(static_cast<void (VELDKernelServices::*)(void*)>(&VELDKernelServices::SignalFifoOverflow)), 113},
    {"GetFirstTimestamp()", Slot(static_cast<VELDTimestamp (VELDKernelServices::*)()>(&VELDKernelServices::GetFirstTimestamp)), 114},
    {"GetLastTimestamp()", Slot(static_cast<VELDTimestamp (VELDKernelServices::*)()>(&VELDKernelServices::GetLastTimestamp)), 115},
    {"CheckLevel()", Slot(static_cast<int (VELDKernelServices::*)()>(&VELDKernelServices::CheckLevel)), 116},
    {"IsDistributedAsMaster()", Slot(static_cast<bool (VELDKernelServices::*)()>(&VELDKernelServices::IsDistributedAsMaster)), 117},
    {"IsDistributedAsSlave()", Slot(static_cast<bool (VELDKernelServices::*)()>(&VELDKernelServices::IsDistributedAsSlave)), 118},
    {"RegisterClock(VELDBaseClock*, unsigned char*)", Slot(static_cast<void (VELDKernelServices::*)(VELDBaseClock*, unsigned char*)>(&VELDKernelServices::RegisterClock)), 119},
    {"UnregisterClock(VELDBaseClock*)", Slot(static_cast<void (VELDKernelServices::*)(VELDBaseClock*)>(&VELDKernelServices::UnregisterClock)), 120},
    {"GetSystemAccurateTiming()", Slot(static_cast<VELDTimestamp (VELDKernelServices::*)()>(&VELDKernelServices::GetSystemAccurateTiming)), 121},
    {"GetAbsoluteTimeSpeed()", Slot(static_cast<int (VELDKernelServices::*)()>(&VELDKernelServices::GetAbsoluteTimeSpeed)), 122},
    {"SetAbsoluteTimeSpeed(int, int)", Slot(static_cast<void (VELDKernelServices::*)(int, int)>(&VELDKernelServices::SetAbsoluteTimeSpeed)), 123},
    {"GetMasterCurrentClockID()", Slot(static_cast<unsigned char (VELDKernelServices::*)()>(&VELDKernelServices::GetMasterCurrentClockID)), 124},
    {"SignalMasterClockChanged(unsigned char)", Slot(static_cast<void (VELDKernelServices::*)(unsigned char)>(&VELDKernelServices::SignalMasterClockChanged)), 125},
    {"GetCurrentClockID()", Slot(static_cast<unsigned char (VELDKernelServices::*)()>(&VELDKernelServices::GetCurrentClockID)), 126},
    {"SetCurrentTime(VELDTimestamp)", Slot(static_cast<void (VELDKernelServices::*)(VELDTimestamp)>(&VELDKernelServices::SetCurrentTime)), 127},
    {"CurrentTime(bool, bool)", Slot(static_cast<VELDTimestamp (VELDKernelServices::*)(bool, bool)>(&VELDKernelServices::CurrentTime)), 128},
    {"SetTimeSpeed(int)", Slot(static_cast<void (VELDKernelServices::*)(int)>(&VELDKernelServices::SetTimeSpeed)), 129},
    {"GetTimeStateCondition()", Slot(static_cast<VELDCondition* (VELDKernelServices::*)()>(&VELDKernelServices::GetTimeStateCondition)), 130},
    {"LockTimeState()", Slot(static_cast<void (VELDKernelServices::*)()>(&VELDKernelServices::LockTimeState)), 131},
    {"UnlockTimeState()", Slot(static_cast<void (VELDKernelServices::*)()>(&VELDKernelServices::UnlockTimeState)), 132},
    {"GetNbFifoOverflows()", Slot(static_cast<int (VELDKernelServices::*)()>(&VELDKernelServices::GetNbFifoOverflows)), 135},
    {"Play()", Slot(static_cast<void (VELDKernelServices::*)()>(&VELDKernelServices::Play)), 136},
    {"Stop()", Slot(static_cast<void (VELDKernelServices::*)()>(&VELDKernelServices::Stop)), 137},
    {"Pause()", Slot(static_cast<void (VELDKernelServices::*)()>(&VELDKernelServices::Pause)), 138},
    {"Next()", Slot(static_cast<void (VELDKernelServices::*)()>(&VELDKernelServices::Next)), 139},
    {"Previous()", Slot(static_cast<void (VELDKernelServices::*)()>(&VELDKernelServices::Previous)), 140},
    {"Go2Index(int)", Slot(static_cast<void (VELDKernelServices::*)(int)>(&VELDKernelServices::Go2Index)), 142},
    {"Go2PreviousIndex()", Slot(static_cast<void (VELDKernelServices::*)()>(&VELDKernelServices::Go2PreviousIndex)), 143},
    {"Go2NextIndex()", Slot(static_cast<void (VELDKernelServices::*)()>(&VELDKernelServices::Go2NextIndex)), 144},
    {"Record()", Slot(static_cast<void (VELDKernelServices::*)()>(&VELDKernelServices::Record)), 145},
    {"GetBoolProperty(const char*, bool*)", Slot(static_cast<bool (VELDKernelServices::*)(const char*, bool*)>(&VELDKernelServices::GetBoolProperty)), 146},
    {"GetIntegerProperty(const char*, bool*)", Slot(static_cast<VELDInt64 (VELDKernelServices::*)(const char*, bool*)>(&VELDKernelServices::GetIntegerProperty)), 147},
    {"GetFloatProperty(const char*, bool*)", Slot(static_cast<double (VELDKernelServices::*)(const char*, bool*)>(&VELDKernelServices::GetFloatProperty)), 148},
    {"GetGlobalConfigValue(const char*)", Slot(static_cast<VELDString (VELDKernelServices::*)(const char*)>(&VELDKernelServices::GetGlobalConfigValue)), 151},
    {"About()", Slot(static_cast<VELDString (VELDKernelServices::*)()>(&VELDKernelServices::About)), 153},
    {"GlobalOSMutex()", Slot(static_cast<VELDMutex* (VELDKernelServices::*)()>(&VELDKernelServices::GlobalOSMutex)), 157},
    {"FinishExit()", Slot(static_cast<void (VELDKernelServices::*)()>(&VELDKernelServices::FinishExit)), 159},
    {"GetEventService()", Slot(static_cast<VELDEventService* (VELDKernelServices::*)()>(&VELDKernelServices::GetEventService)), 160},
    };
    for (const Row& row : rows) EXPECT_EQ(row.slot, row.expected) << row.operation;
    EXPECT_EQ(sizeof rows / sizeof rows[0], 113u);
}

TEST(KernelServicesLayout, EventServiceOperationsStandInTheirSlots)
{
    EXPECT_EQ(Slot(&VELDEventService::SetTrigger), 2);
    EXPECT_EQ(Slot(&VELDEventService::ResetTrigger), 3);
    EXPECT_EQ(Slot(&VELDEventService::WaitForEvents), 5);
}

TEST(KernelServicesLayout, FindSymbolRecordHoldsTheModuleInItsThirdWord)
{
    VELDSymbol symbol{"a.b", VELDSymbol::PropertySymbol, reinterpret_cast<VELDModule*>(0x1234), nullptr};
    void* words[3];
    std::memcpy(words, &symbol, sizeof words);
    EXPECT_EQ(words[2], reinterpret_cast<void*>(0x1234));
}
