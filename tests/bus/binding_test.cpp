// Loading of the tables of the three closed libraries, run through the real
// resolution code against library objects that hand out the doubles'
// functions, and the counts of the wrappers that keep a table bound.
#include <unistd.h>

#include <boost/filesystem/operations.hpp>
#include <boost/system/system_error.hpp>

#include "NxBusLibraryPaths.h"
#include "bus_test_fixture.h"

namespace {

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

// A table as the package binds it: each symbol with the address bound.
using Table = std::vector<std::pair<std::string, void*>>;

Table CanTable()
{
    Table table;
#define NXTEST_ENTRY(name) table.emplace_back("NXCAN_" #name, reinterpret_cast<void*>(pfnCan##name));
    NXCAN_API_OPERATIONS(NXTEST_ENTRY)
#undef NXTEST_ENTRY
    return table;
}

Table EthTable()
{
    Table table;
#define NXTEST_ENTRY(name) table.emplace_back("NXETH_" #name, reinterpret_cast<void*>(pfnEth##name));
    NXETH_API_OPERATIONS(NXTEST_ENTRY)
#undef NXTEST_ENTRY
    return table;
}

Table DrPreTable()
{
    Table table;
#define NXTEST_ENTRY(name, type, symbol) table.emplace_back(#symbol, reinterpret_cast<void*>(pfnPreprocessing##name));
    NXDRPP_OPERATIONS(NXTEST_ENTRY)
#undef NXTEST_ENTRY
    return table;
}

// One closed library as the tests see it.
struct Kind {
    const char* name;
    NxLibraryBinding& (*binding)();
    int (*load)();
    void (*unload)();
    Table (*table)();
    std::string path;
    bool missingIsAnError;  // no test that the file exists before loading
    bool pinned;            // an unload keeps the library mapped
};

const Kind kKinds[] = {
    {"CAN", CanLibrary, LoadCanLibrary, UnloadCanLibrary, CanTable, NX_BUSAPI_CAN_LIBRARY_PATH, true, true},
    {"Ethernet", EthLibrary, LoadEthLibrary, UnloadEthLibrary, EthTable, NX_BUSAPI_ETH_LIBRARY_PATH, false, true},
    {"pre-processing", DrPreLibrary, LoadDrPreLibrary, UnloadDrPreLibrary, DrPreTable,
     BesideThisProgram(NX_DRPP_LIBRARY_RELATIVE_PATH), false, false},
};

bool IsEmpty(const Table& table)
{
    for (const auto& entry : table)
        if (entry.second) return false;
    return true;
}

std::vector<std::string> Names(const Table& table)
{
    std::vector<std::string> names;
    for (const auto& entry : table) names.push_back(entry.first);
    return names;
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

// Loaded once; an unload clears the table, and only the pre-processing
// library is let go for real: a load after it binds the table again.
TEST_F(Binding, LoadsItsPathOnceBindsEverySymbolAndUnloadClearsTheTable)
{
    for (const Kind& kind : kKinds) {
        SCOPED_TRACE(kind.name);
        nxtest::FakeLibraryObject& object = Object(kind);
        ASSERT_TRUE(IsEmpty(kind.table()));
        kind.unload();  // nothing loaded: nothing to do
        EXPECT_EQ(object.unloads, 0);
        EXPECT_EQ(kind.load(), 0);
        EXPECT_EQ(kind.load(), 0);
        EXPECT_EQ(Canonical(object.loads), std::vector<std::string>{kind.path});
        kind.unload();
        EXPECT_TRUE(IsEmpty(kind.table()));
        EXPECT_EQ(object.is_loaded(), kind.pinned);
        EXPECT_EQ(kind.load(), 0);
        EXPECT_EQ(object.loads.size(), kind.pinned ? 1u : 2u);
        for (const auto& entry : kind.table())
            EXPECT_EQ(entry.second, nxtest::FakeLibrary::Symbol(entry.first)) << entry.first;
    }
}

TEST_F(Binding, ANullSymbolLeavesNoUsableBinding)
{
    for (const Kind& kind : kKinds) {
        const std::vector<std::string> names = Names(kind.table());
        for (const std::string& name : {names.front(), names.back()}) {
            SCOPED_TRACE(std::string(kind.name) + " without " + name);
            nxtest::FakeLibraryObject& object = Object(kind);
            object.missing = {name};
            EXPECT_EQ(kind.load(), 1);
            EXPECT_TRUE(IsEmpty(kind.table()));
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
        Object(kind).throwing = {Names(kind.table()).at(2)};
        EXPECT_THROW(kind.load(), boost::system::system_error);
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
