// Loading of the CAN library table, run through the real resolution code
// against a library object that hands out the double's functions.
#include <boost/system/system_error.hpp>

#include "NxBusLibraryPaths.h"
#include "bus_test_fixture.h"

namespace {

// Written out here, not taken from the binding, so that a change of order
// there shows.
const std::vector<std::string> kTableOrder = {
    "NXCAN_GetAvailableChannelsCount",
    "NXCAN_GetAvailableChannels",
    "NXCAN_RegisterChannel",
    "NXCAN_UnregisterChannel",
    "NXCAN_IsChannelAccessible",
    "NXCAN_InitChannel",
    "NXCAN_SetBaudrate",
    "NXCAN_GetBaudrate",
    "NXCAN_SetAcceptance",
    "NXCAN_SetEventNotification",
    "NXCAN_ActivateChannel",
    "NXCAN_DeactivateChannel",
    "NXCAN_GetHardwareTimeResolution",
    "NXCAN_GetHardwareTime",
    "NXCAN_ReadReceiveQueue",
    "NXCAN_FlushReceiveQueue",
    "NXCAN_TransmitMessages",
    "NXCAN_FlushTransmitQueue",
    "NXCAN_RegisterReplayChannel",
    "NXCAN_SetReplayStartTime",
    "NXCAN_SetReplayStopTime",
    "NXCAN_ReplayStreamData",
    "NXCAN_ReplayInitHeader",
    "NXCAN_GetReplayStateInfo",
    "NXCAN_GetLastVendorSpecificError",
    "NXCAN_ConvertBaudrateToBitTimingParameters",
    "NXCAN_ConvertBitTimingParametersToBaudrate",
    "NXCAN_GetErrorText",
};

std::vector<void*> Table()
{
    std::vector<void*> table;
#define NXTEST_TABLE_ENTRY(name) table.push_back(reinterpret_cast<void*>(pfnCan##name));
    NXCAN_API_OPERATIONS(NXTEST_TABLE_ENTRY)
#undef NXTEST_TABLE_ENTRY
    return table;
}

bool TableIsEmpty()
{
    for (void* entry : Table())
        if (entry) return false;
    return true;
}

using CanBinding = BusTest;

}  // namespace

TEST_F(CanBinding, LoadsTheFixedPathOnceAndResolvesInTableOrderOnEveryLoad)
{
    ASSERT_TRUE(TableIsEmpty());
    EXPECT_EQ(LoadCanLibrary(), 0);
    EXPECT_EQ(bus.Object().loads,
              std::vector<std::string>{NX_BUSAPI_CAN_LIBRARY_PATH});
    EXPECT_EQ(bus.Object().requested, kTableOrder);
    std::vector<void*> table = Table();
    for (std::size_t i = 0; i < table.size(); ++i)
        EXPECT_EQ(table[i], nxtest::FakeLibrary::Symbol(kTableOrder[i])) << kTableOrder[i];

    // Again: no second load, the symbols are resolved anew.
    EXPECT_EQ(LoadCanLibrary(), 0);
    EXPECT_EQ(bus.Object().loads.size(), 1u);
    EXPECT_EQ(bus.Object().requested.size(), 2 * kTableOrder.size());
}

TEST_F(CanBinding, ANullSymbolLeavesNoUsableBinding)
{
    for (const std::string& name : {std::string("NXCAN_GetAvailableChannelsCount"), std::string("NXCAN_GetErrorText"),
                                    std::string("NXCAN_ReplayStreamData")}) {
        bus.Object().missing = {name};
        EXPECT_EQ(LoadCanLibrary(), 1) << name;
        EXPECT_TRUE(TableIsEmpty()) << name;
        // Resolution goes on past the missing symbol before it gives up.
        EXPECT_EQ(bus.Object().requested.back(), "NXCAN_GetErrorText");
    }
    EXPECT_EQ(NxCanApiWrapper::RetrieveChannelCount("127.0.0.1"), 0u);
    EXPECT_TRUE(NxCanApiWrapper::RetrieveAvailableChannelsVector("127.0.0.1", false).empty());
}

TEST_F(CanBinding, FailuresOfLoadingAndOfLookUpPassThrough)
{
    bus.Object().throwing = {"NXCAN_SetAcceptance"};
    EXPECT_THROW(LoadCanLibrary(), boost::system::system_error);
    EXPECT_EQ(bus.Object().requested.back(), "NXCAN_SetAcceptance");

    nxtest::ScopedFakeCanLibrary unloadable;
    unloadable.Object().failLoad = true;
    // A machine without the library sees the exception, not the result 1.
    EXPECT_THROW(LoadCanLibrary(), boost::system::system_error);
    EXPECT_THROW(NxCanApiWrapper::RetrieveAvailableChannelsVector("127.0.0.1", false), boost::system::system_error);
    EXPECT_THROW(Make(Monitoring()), boost::system::system_error);
    EXPECT_EQ(uCanApiWrapperCount, 0u);
}

TEST_F(CanBinding, UnloadClearsTheTableAndKeepsTheLibrary)
{
    UnloadCanLibrary();  // nothing loaded: nothing to do
    ASSERT_EQ(LoadCanLibrary(), 0);
    UnloadCanLibrary();
    EXPECT_TRUE(TableIsEmpty());
    EXPECT_TRUE(bus.Object().is_loaded());
    EXPECT_EQ(LoadCanLibrary(), 0);
    EXPECT_EQ(bus.Object().loads.size(), 1u);
    EXPECT_FALSE(TableIsEmpty());
}

TEST_F(CanBinding, TheLastWrapperClearsTheTableAndDiscoveryLoadsItAgain)
{
    AddChannel();
    auto first = Make(Monitoring());
    auto second = Make(Monitoring());
    EXPECT_EQ(uCanApiWrapperCount, 2u);
    first.reset();
    EXPECT_FALSE(TableIsEmpty());
    EXPECT_EQ(uCanApiWrapperCount, 1u);
    second.reset();
    EXPECT_TRUE(TableIsEmpty());
    EXPECT_EQ(uCanApiWrapperCount, 0u);
    EXPECT_EQ(NxCanApiWrapper::RetrieveChannelCount("127.0.0.1"), 0u);

    std::vector<NXSCanChannelInfo> channels = NxCanApiWrapper::RetrieveAvailableChannelsVector("127.0.0.1", false);
    ASSERT_EQ(channels.size(), 1u);
    EXPECT_EQ(NxCanApiWrapper::RetrieveChannelCount("127.0.0.1"), 1u);
}

TEST_F(CanBinding, AConstructorThatThrowsLeavesTheWrapperCountAsItWas)
{
    AddChannel();
    Fake().SetResult("NXCAN_GetAvailableChannelsCount", 4);
    EXPECT_THROW(Make(Monitoring()), std::runtime_error);
    EXPECT_EQ(uCanApiWrapperCount, 0u);
}
