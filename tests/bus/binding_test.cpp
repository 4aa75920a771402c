// Loading of the tables of the three closed libraries, run through the real
// resolution code against library objects that hand out the doubles'
// functions, and the counts of the wrappers that keep a table bound.
#include <unistd.h>

#include <boost/filesystem/operations.hpp>
#include <boost/system/system_error.hpp>

#include "NxBusLibraryPaths.h"
#include "bus_test_fixture.h"

namespace {

// Written out here, not taken from the bindings, so that a change of order
// there shows.
const std::vector<std::string> kCanOrder = {
    "NXCAN_GetAvailableChannelsCount", "NXCAN_GetAvailableChannels", "NXCAN_RegisterChannel",
    "NXCAN_UnregisterChannel", "NXCAN_IsChannelAccessible", "NXCAN_InitChannel", "NXCAN_SetBaudrate",
    "NXCAN_GetBaudrate", "NXCAN_SetAcceptance", "NXCAN_SetEventNotification", "NXCAN_ActivateChannel",
    "NXCAN_DeactivateChannel", "NXCAN_GetHardwareTimeResolution", "NXCAN_GetHardwareTime",
    "NXCAN_ReadReceiveQueue", "NXCAN_FlushReceiveQueue", "NXCAN_TransmitMessages", "NXCAN_FlushTransmitQueue",
    "NXCAN_RegisterReplayChannel", "NXCAN_SetReplayStartTime", "NXCAN_SetReplayStopTime",
    "NXCAN_ReplayStreamData", "NXCAN_ReplayInitHeader", "NXCAN_GetReplayStateInfo",
    "NXCAN_GetLastVendorSpecificError", "NXCAN_ConvertBaudrateToBitTimingParameters",
    "NXCAN_ConvertBitTimingParametersToBaudrate", "NXCAN_GetErrorText"};
const std::vector<std::string> kEthOrder = {
    "NXETH_GetAvailableInterfacesCount", "NXETH_GetAvailableInterfaces", "NXETH_RegisterInterface",
    "NXETH_UnregisterInterface", "NXETH_GetInterfaceBufferSize", "NXETH_IsInterfaceAccessible",
    "NXETH_InitInterface", "NXETH_ActivateInterface", "NXETH_DeactivateInterface", "NXETH_GetTimeResolution",
    "NXETH_GetTime", "NXETH_ReadFrames", "NXETH_FlushReceiveQueue", "NXETH_TransmitFrames",
    "NXETH_FlushTransmitQueue", "NXETH_GetErrorText", "NXETH_GetLastAccessProviderSpecificError",
    "NXETH_SetFilter", "NXETH_SetReplayStartTime", "NXETH_SetReplayStopTime", "NXETH_ReplayStreamData",
    "NXETH_ReplayInitHeader", "NXETH_GetReplayStateInfo", "NXETH_RegisterReplayInterface"};
const std::vector<std::string> kDrPreOrder = {"NxDRPP_CreateHandle", "NxDRPP_DestroyHandle",  "NxDRPP_InsertFrames",
                                              "NxDRPP_GetFrames",    "NxDRPP_FlushBuffers", "NxDRPP_GetStatistics"};

// The folder "bin" beside the running code, which is this test program.
std::string BesideThisProgram(const std::string& name)
{
    char self[4096];
    ssize_t n = readlink("/proc/self/exe", self, sizeof self - 1);
    std::string path(self, n > 0 ? static_cast<std::size_t>(n) : 0);
    return path.substr(0, path.rfind('/')) + "/" + name;
}

// A path as the file system knows it, whether it came relative or not.
std::vector<std::string> Canonical(const std::vector<std::string>& paths)
{
    std::vector<std::string> out;
    for (const std::string& path : paths) out.push_back(boost::filesystem::weakly_canonical(path).string());
    return out;
}

// One closed library as the tests see it.
struct Kind {
    const char* name;
    NxLibraryBinding& (*binding)();
    int (*load)();
    void (*unload)();
    std::vector<void*> (*table)();
    const std::vector<std::string>* order;
    std::string path;
    bool missingIsAnError;  // no test that the file exists before loading
    bool pinned;            // an unload keeps the library mapped
};

std::vector<void*> CanTable()
{
    std::vector<void*> table;
#define NXTEST_ENTRY(name) table.push_back(reinterpret_cast<void*>(pfnCan##name));
    NXCAN_API_OPERATIONS(NXTEST_ENTRY)
#undef NXTEST_ENTRY
    return table;
}

std::vector<void*> EthTable()
{
    std::vector<void*> table;
#define NXTEST_ENTRY(name) table.push_back(reinterpret_cast<void*>(pfnEth##name));
    NXETH_API_OPERATIONS(NXTEST_ENTRY)
#undef NXTEST_ENTRY
    return table;
}

std::vector<void*> DrPreTable()
{
    std::vector<void*> table;
#define NXTEST_ENTRY(name, type, symbol) table.push_back(reinterpret_cast<void*>(pfnPreprocessing##name));
    NXDRPP_OPERATIONS(NXTEST_ENTRY)
#undef NXTEST_ENTRY
    return table;
}

const Kind kKinds[] = {
    {"CAN", CanLibrary, LoadCanLibrary, UnloadCanLibrary, CanTable, &kCanOrder, NX_BUSAPI_CAN_LIBRARY_PATH, true, true},
    {"Ethernet", EthLibrary, LoadEthLibrary, UnloadEthLibrary, EthTable, &kEthOrder, NX_BUSAPI_ETH_LIBRARY_PATH, false,
     true},
    {"pre-processing", DrPreLibrary, LoadDrPreLibrary, UnloadDrPreLibrary, DrPreTable, &kDrPreOrder,
     BesideThisProgram(NX_DRPP_LIBRARY_RELATIVE_PATH), false, false},
};

bool IsEmpty(const std::vector<void*>& table)
{
    for (void* entry : table)
        if (entry) return false;
    return true;
}

// Each kind with a double of its own installed.
class Binding : public EngineTest {
protected:
    nxtest::ScopedFakeCanLibrary can;
    nxtest::ScopedFakeEthLibrary eth;

    nxtest::FakeLibraryObject& Object(const Kind& kind)
    {
        if (&kind.binding() == &CanLibrary()) return can.Object();
        return &kind.binding() == &EthLibrary() ? eth.EthObject() : eth.StageObject();
    }
};

}  // namespace

TEST_F(Binding, LoadsItsPathOnceAndResolvesInTableOrderOnEveryLoad)
{
    for (const Kind& kind : kKinds) {
        SCOPED_TRACE(kind.name);
        nxtest::FakeLibraryObject& object = Object(kind);
        ASSERT_TRUE(IsEmpty(kind.table()));
        EXPECT_EQ(kind.load(), 0);
        EXPECT_EQ(Canonical(object.loads), std::vector<std::string>{kind.path});
        EXPECT_EQ(object.requested, *kind.order);
        std::vector<void*> table = kind.table();
        for (std::size_t i = 0; i < table.size(); ++i)
            EXPECT_EQ(table[i], nxtest::FakeLibrary::Symbol(kind.order->at(i))) << kind.order->at(i);

        // Again: no second load, the symbols are resolved anew.
        EXPECT_EQ(kind.load(), 0);
        EXPECT_EQ(object.loads.size(), 1u);
        EXPECT_EQ(object.requested.size(), 2 * kind.order->size());
    }
}

TEST_F(Binding, ANullSymbolLeavesNoUsableBinding)
{
    for (const Kind& kind : kKinds) {
        for (const std::string& name : {kind.order->front(), kind.order->back()}) {
            SCOPED_TRACE(std::string(kind.name) + " without " + name);
            nxtest::FakeLibraryObject& object = Object(kind);
            object.missing = {name};
            EXPECT_EQ(kind.load(), 1);
            EXPECT_TRUE(IsEmpty(kind.table()));
            // Resolution goes on past the missing symbol before it gives up.
            EXPECT_EQ(object.requested.back(), kind.order->back());
            // Only the pre-processing library is let go for real.
            EXPECT_EQ(object.is_loaded(), kind.pinned);
            object.missing.clear();
        }
    }
    EXPECT_EQ(NxCanApiWrapper::RetrieveChannelCount("127.0.0.1"), 0u);
    EXPECT_EQ(NxEthApiWrapper::RetrieveAvailableChannelCount("127.0.0.1"), 0u);
}

TEST_F(Binding, AMissingFileIsAnErrorOnlyForCan)
{
    for (const Kind& kind : kKinds) {
        SCOPED_TRACE(kind.name);
        Object(kind).absent = true;
        if (kind.missingIsAnError) {
            EXPECT_THROW(kind.load(), boost::system::system_error);
        } else {
            EXPECT_EQ(kind.load(), 1);
            EXPECT_EQ(Canonical(Object(kind).probed), std::vector<std::string>{kind.path});
            EXPECT_TRUE(Object(kind).loads.empty());
        }
        // A file that is there and no library is an error for everybody.
        Object(kind).absent = false;
        Object(kind).failLoad = true;
        EXPECT_THROW(kind.load(), boost::system::system_error);
        Object(kind).failLoad = false;
        Object(kind).throwing = {kind.order->at(2)};
        EXPECT_THROW(kind.load(), boost::system::system_error);
    }
}

TEST_F(Binding, UnloadClearsTheTableAndLetsOnlyThePreProcessingLibraryGo)
{
    for (const Kind& kind : kKinds) {
        SCOPED_TRACE(kind.name);
        kind.unload();  // nothing loaded: nothing to do
        EXPECT_EQ(Object(kind).unloads, 0);
        ASSERT_EQ(kind.load(), 0);
        kind.unload();
        EXPECT_TRUE(IsEmpty(kind.table()));
        EXPECT_EQ(Object(kind).is_loaded(), kind.pinned);
        EXPECT_EQ(kind.load(), 0);
        EXPECT_EQ(Object(kind).loads.size(), kind.pinned ? 1u : 2u);
    }
}

TEST_F(Binding, DiscoveryWithoutALibraryListsNothing)
{
    can.Fake().AddChannel({"Norvex", "PCIe", "SN", "ch1", 0});
    eth.Eth().AddChannel({"Norvex", "veth", "SN", "eth1"});
    can.Object().absent = true;
    eth.EthObject().absent = true;
    EXPECT_TRUE(NxCanApiWrapper::RetrieveAvailableChannelsVector("127.0.0.1", false).empty());
    EXPECT_TRUE(NxEthApiWrapper::RetrieveAvailableChannelsVector("127.0.0.1", false).empty());
    EXPECT_TRUE(can.Object().loads.empty());
    EXPECT_TRUE(eth.EthObject().loads.empty());
    // With the library there, the same calls find the channels.
    can.Object().absent = false;
    eth.EthObject().absent = false;
    EXPECT_EQ(NxCanApiWrapper::RetrieveAvailableChannelsVector("127.0.0.1", false).size(), 1u);
    EXPECT_EQ(NxEthApiWrapper::RetrieveAvailableChannelsVector("127.0.0.1", false).size(), 1u);
}

using CanBinding = BusTest;

TEST_F(CanBinding, TheLastWrapperClearsTheTableAndDiscoveryLoadsItAgain)
{
    AddChannel();
    auto first = Make(Monitoring());
    auto second = Make(Monitoring());
    EXPECT_EQ(uCanApiWrapperCount, 2u);
    first.reset();
    EXPECT_FALSE(IsEmpty(CanTable()));
    EXPECT_EQ(uCanApiWrapperCount, 1u);
    second.reset();
    EXPECT_TRUE(IsEmpty(CanTable()));
    EXPECT_EQ(uCanApiWrapperCount, 0u);
    EXPECT_EQ(NxCanApiWrapper::RetrieveChannelCount("127.0.0.1"), 0u);

    ASSERT_EQ(NxCanApiWrapper::RetrieveAvailableChannelsVector("127.0.0.1", false).size(), 1u);
    EXPECT_EQ(NxCanApiWrapper::RetrieveChannelCount("127.0.0.1"), 1u);
}

TEST_F(CanBinding, AConstructorThatThrowsLeavesTheWrapperCountAsItWas)
{
    AddChannel();
    Fake().SetResult("NXCAN_GetAvailableChannelsCount", 4);
    EXPECT_THROW(Make(Monitoring()), std::runtime_error);
    EXPECT_EQ(uCanApiWrapperCount, 0u);
    nxtest::ScopedFakeCanLibrary missing;
    missing.Object().absent = true;
    // The constructor loads without asking: the loader's error.
    EXPECT_THROW(Make(Monitoring()), boost::system::system_error);
    EXPECT_EQ(uCanApiWrapperCount, 0u);
}
