// Finding channels at an address: the real loading code and the real wrapper
// against the simulated library at the fixed path. A channel that another
// holds: process_test.
#include <dlfcn.h>

#include <map>

#include "NxCanApi.h"
#include "SimBusTest.h"

namespace nxbus_on_sim {
namespace {

std::vector<std::string> Identifiers(const std::vector<NXSCanChannelInfo>& channels)
{
    std::vector<std::string> ids;
    for (const NXSCanChannelInfo& info : channels)
        ids.push_back(static_cast<const char*>(NxCanApiWrapper::GetChannelId(info)));
    return ids;
}

using Discovery = SimBusTest;
using Ids = std::vector<std::string>;

TEST_F(Discovery, ListsTheChannelsAtTheAddressWithTheirDescriptions)
{
    const std::vector<NXSCanChannelInfo> channels = NxCanApiWrapper::RetrieveAvailableChannelsVector(kAddress, false);
    ASSERT_EQ(Identifiers(channels),
              (Ids{"NVX-CAN-1", "NVX-CAN-2", "NVX-VIRT-1", "ORV-CAN-1", "NVX-ZIRA-1"}));

    const std::map<std::string, std::string> described = {
        {"NVX-CAN-1", "Vendor: Norvex; Interface: NVX CAN FD Interface 4; Serial number: NVX4-000117"},
        {"NVX-CAN-2", "Vendor: Norvex; Interface: NVX CAN FD Interface 4; Serial number: NVX4-000117"},
        {"NVX-VIRT-1", "Vendor: Norvex; Interface: Virtual"},
        {"ORV-CAN-1", "Vendor: Orvik Labs; Interface: OL-CAN USB; Serial number: OL-5521"},
        {"NVX-ZIRA-1", "Vendor: Norvex; Interface: NVX ZIRA Replay Unit; Serial number: NZR-000042"}};
    for (const NXSCanChannelInfo& info : channels) {
        const std::string id = static_cast<const char*>(NxCanApiWrapper::GetChannelId(info));
        SCOPED_TRACE(id);
        EXPECT_EQ(static_cast<const char*>(NxCanApiWrapper::GetChannelDescription(info, id.c_str())),
                  described.at(id));
        EXPECT_STREQ(static_cast<const char*>(NxCanApiWrapper::GetChannelDescription(info, "NVX-CAN-9")), "");
        EXPECT_EQ(NxCanApiWrapper::IsHighSpeedChannel(info), id == "NVX-CAN-1");
    }

    // Norvex hardware only: the other vendor and the virtual channel go.
    EXPECT_EQ(Identifiers(NxCanApiWrapper::RetrieveAvailableChannelsVector(kAddress, true)),
              (Ids{"NVX-CAN-1", "NVX-CAN-2", "NVX-ZIRA-1"}));

    // A wrapper finds the same list when it is made.
    auto wrapper = std::make_unique<NxCanApiWrapper>(Monitoring("NVX-CAN-2"));
    ASSERT_EQ(wrapper->GetCanChannelCount(), channels.size());
    for (std::uint32_t i = 0; i < wrapper->GetCanChannelCount(); ++i)
        EXPECT_STREQ(wrapper->GetCanChannelInfo()[i].szChannelIdentifier, channels[i].szChannelIdentifier);
}

TEST_F(Discovery, AnAddressWithoutChannelsGivesNothingToClaim)
{
    EXPECT_TRUE(NxCanApiWrapper::RetrieveAvailableChannelsVector("127.0.0.2", false).empty());
    EXPECT_TRUE(NxCanApiWrapper::RetrieveAvailableChannelsVector("127.0.0.2", true).empty());
    EXPECT_TRUE(NxCanApiWrapper::RetrieveAvailableChannelsVector("CAN1", false).empty()) << "not an address";

    NxCanApiWrapperSettings settings = Monitoring("NVX-CAN-1");
    settings.SetIp("127.0.0.2");
    auto wrapper = std::make_unique<NxCanApiWrapper>(settings);
    EXPECT_EQ(wrapper->GetCanChannelCount(), 0u);
    bool highSpeed = false;
    NxBusError result = wrapper->Initialize(&highSpeed);
    EXPECT_EQ(result.errorCode, 10);
    EXPECT_EQ(result.functionName, "RegisterCanChannel");
    // The wrapper's own code reads, through the library's texts, as what it is.
    EXPECT_EQ(wrapper->GetErrorMessage(result), "RegisterCanChannel: no such channel");
    EXPECT_EQ(wrapper->GetCanChannelHandle(), NXCAN_INVALID_HANDLE);

    // The same for an identifier that the address does not have.
    auto unknown = std::make_unique<NxCanApiWrapper>(Monitoring("NVX-CAN-9"));
    EXPECT_EQ(unknown->GetCanChannelCount(), 5u);
    EXPECT_EQ(unknown->Initialize(&highSpeed).errorCode, 10);
}

using LibraryLifetime = SimBusTest;

// The library runs threads of its own: it stays mapped when the object that
// loaded it goes (as it does when the package is unloaded), and a later
// load finds it as it was.
TEST_F(LibraryLifetime, TheLibraryStaysMappedWhenItsObjectIsGone)
{
    ASSERT_EQ(LoadCanLibrary(), 0);
    ASSERT_TRUE(hNxCanApiDll);
    hNxCanApiDll.reset();
    void* mapped = dlopen(kNxCanApiLibraryPath, RTLD_NOW | RTLD_NOLOAD);
    EXPECT_NE(mapped, nullptr) << "the library was unmapped";
    if (mapped) dlclose(mapped);

    ASSERT_EQ(LoadCanLibrary(), 0);
    auto rx = Open(Monitoring("NVX-CAN-2"));
    auto tx = Open(Monitoring("NVX-CAN-1"));
    ASSERT_TRUE(rx && tx);
    std::vector<NXSCanMessage> sent = ToMessages({MixedTraffic().front()});
    ASSERT_EQ(tx->TransmitMessages(sent.data(), 1).errorCode, 0);
    EXPECT_EQ(Receive(*rx, 1).size(), 1u);
}

}  // namespace
}  // namespace nxbus_on_sim
