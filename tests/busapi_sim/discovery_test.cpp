// Discovery, topology configuration, registration and error texts.
#include <unistd.h>

#include <cstring>
#include <set>
#include <string>

#include "sim_test_support.h"
#include "simulator.h"

namespace nxsim_test {
namespace {

using DiscoveryTest = SimTest;

// The default topology's channels are checked where the components list
// them (bus_components, ChannelListFollowsDiscovery...).
TEST_F(DiscoveryTest, OnlyTheBusAddressFindsChannelsAndListingFillsNoMoreThanAskedFor)
{
    for (const char* elsewhere : {"10.1.2.3", "", "not an address"})
        EXPECT_TRUE(ListChannels(elsewhere).empty()) << elsewhere;
    NXSCanChannelsSearchAttribute attribute{};
    attribute.tSearchAttributeType = static_cast<NXECanChannelsSearchAttributeType>(7);
    uint32_t count = 99;
    EXPECT_EQ(NXCAN_GetAvailableChannelsCount(&count, 1, &attribute), NXCAN_ERR_INVALID_ARGUMENT);
    EXPECT_EQ(NXCAN_GetAvailableChannelsCount(nullptr, 0, nullptr), NXCAN_ERR_INVALID_ARGUMENT);

    attribute = {NXCAN_SEARCH_ARRTIBUTE_TYPE_IP_V4_ADDRESS, "127.0.0.1"};
    NXSCanChannelInfo channels[3];
    std::memset(channels, 0xEE, sizeof channels);
    count = 2;
    ASSERT_EQ(NXCAN_GetAvailableChannels(&count, channels, 1, &attribute), NXCAN_SUCCESS);
    EXPECT_EQ(count, 2u);
    EXPECT_EQ(static_cast<unsigned char>(channels[2].szVendorName[0]), 0xEE) << "third record untouched";
    EXPECT_STREQ(channels[0].szChannelIdentifier, "NVX-CAN-1");
}

TEST_F(DiscoveryTest, ConfigurationFileDefinesSeveralBusesInSharedMemoryWhileUsed)
{
    UseConfig(R"(# two buses, one of them reachable at two addresses
namespace = ignored-because-the-environment-wins
[bus body]
address = 192.168.77.10, 127.0.0.1
bitrate = 250000
[bus chassis]
address = 192.168.77.11
[channel BODY-1]
bus = body
vendor = Norvex
interface = NVX CAN FD Interface 4
capabilities = 0x100
[channel CHASSIS-1]
bus = chassis
vendor = Someone Else
interface = Box
serial = 42
)");
    const auto loopback = ListChannels("127.0.0.1");
    ASSERT_EQ(loopback.size(), 1u);
    EXPECT_STREQ(loopback[0].szChannelIdentifier, "BODY-1");
    EXPECT_EQ(loopback[0].ulChannelCapabilities, 0x100u);
    ASSERT_EQ(ListChannels("192.168.77.10").size(), 1u);
    const auto chassis = ListChannels("192.168.77.11");
    ASSERT_EQ(chassis.size(), 1u);
    EXPECT_STREQ(chassis[0].szInterfaceSerialNumber, "42");

    // The rate of a bus is the one its channels start with.
    const NXTCanHandle h = Open("BODY-1", false);
    uint32_t clock = 0, rate = 0;
    NXSCanBitTimingParameters arbitration{}, data{};
    bool fd = true;
    ASSERT_EQ(NXCAN_GetBaudrate(h, &clock, &arbitration, &fd, &data), NXCAN_SUCCESS);
    ASSERT_EQ(NXCAN_ConvertBitTimingParametersToBaudrate(clock, &arbitration, &rate), NXCAN_SUCCESS);
    EXPECT_EQ(rate, 250000u);
    EXPECT_FALSE(fd);
    const std::string shm = "/dev/shm/nxbusapi-sim." + NameSpace();
    EXPECT_TRUE(access((shm + ".body").c_str(), F_OK) == 0);
    EXPECT_FALSE(access((shm + ".chassis").c_str(), F_OK) == 0) << "a bus is attached when used";
    NXCAN_UnregisterChannel(h);
    nxsim::Simulator::Instance().ResetForTests();
    EXPECT_FALSE(access((shm + ".body").c_str(), F_OK) == 0) << "its last user removes it";
}

TEST_F(DiscoveryTest, ShippedExampleConfigurationIsValid)
{
    const std::string text = veldtest::ReadText(NXSIM_EXAMPLE_CONFIG);
    ASSERT_FALSE(text.empty());
    UseConfig(text);
    const auto body = ListChannels("192.168.10.21");
    ASSERT_EQ(body.size(), 1u) << ErrorText(NXCAN_ERR_CONFIGURATION);
    EXPECT_STREQ(body[0].szChannelIdentifier, "BODY-1");
    EXPECT_EQ(ListChannels("192.168.10.20").size(), 2u);
    NXTCanHandle h = Open("NVX-CAN-1");
    uint64_t resolution = 0;
    EXPECT_EQ(NXCAN_GetHardwareTimeResolution(h, &resolution), NXCAN_SUCCESS);
    EXPECT_EQ(resolution, 80000000u);
}

TEST_F(DiscoveryTest, InvalidConfigurationIsReportedWithItsLine)
{
    const char* broken[] = {
        "[bus a]\nbitrate = 300000\n[channel X]\nvendor = v\ninterface = i\n",  // not reachable
        "[channel X]\nvendor = v\ninterface = i\n",                             // no bus
        "[bus a]\n[bus b]\n[channel X]\nvendor = v\ninterface = i\n",           // which bus?
        "clock_resolution_hz = 1500000\n",
        "[fault NXCAN_Nothing]\ncode = 3\n",
        "[fault NXCAN_ActivateChannel]\n",
        "unknown_key = 1\n",
    };
    for (const char* text : broken) {
        UseConfig(text);
        uint32_t count = 0;
        NXSCanChannelsSearchAttribute attribute{NXCAN_SEARCH_ARRTIBUTE_TYPE_IP_V4_ADDRESS, "127.0.0.1"};
        EXPECT_EQ(NXCAN_GetAvailableChannelsCount(&count, 1, &attribute), NXCAN_ERR_CONFIGURATION) << text;
        EXPECT_NE(ErrorText(NXCAN_ERR_CONFIGURATION).find("nxsim-test-"), std::string::npos)
            << "the text names the file: " << ErrorText(NXCAN_ERR_CONFIGURATION);
    }
}

TEST_F(DiscoveryTest, RegistrationClaimsAChannelOnce)
{
    NXTCanHandle h = NXCAN_INVALID_HANDLE;
    char vendor[] = "Norvex", iface[] = "Virtual", serial[] = "", unknown[] = "NVX-NOPE", wrongVendor[] = "Acme",
         id[] = "NVX-VIRT-1";
    EXPECT_EQ(NXCAN_RegisterChannel(vendor, iface, serial, unknown, &h), NXCAN_ERR_CHANNEL_NOT_FOUND);
    EXPECT_EQ(NXCAN_RegisterChannel(wrongVendor, iface, serial, id, &h), NXCAN_ERR_CHANNEL_NOT_FOUND);
    EXPECT_EQ(h, NXCAN_INVALID_HANDLE) << "no handle on failure";

    ASSERT_EQ(NXCAN_RegisterChannel(vendor, iface, serial, id, &h), NXCAN_SUCCESS);
    NXTCanHandle second = NXCAN_INVALID_HANDLE;
    EXPECT_EQ(NXCAN_RegisterReplayChannel(vendor, iface, serial, id, &second, false, 0), NXCAN_ERR_CHANNEL_IN_USE);
    EXPECT_NE(ErrorText(NXCAN_ERR_CHANNEL_IN_USE).find("channel in use"), std::string::npos);
    bool accessible = false;
    EXPECT_EQ(NXCAN_IsChannelAccessible(h, &accessible), NXCAN_SUCCESS);
    EXPECT_TRUE(accessible);

    ASSERT_EQ(NXCAN_UnregisterChannel(h), NXCAN_SUCCESS);
    EXPECT_EQ(NXCAN_IsChannelAccessible(h, &accessible), NXCAN_ERR_INVALID_HANDLE);
    EXPECT_EQ(NXCAN_UnregisterChannel(h), NXCAN_ERR_INVALID_HANDLE);
    ASSERT_EQ(NXCAN_RegisterChannel(vendor, iface, serial, id, &second), NXCAN_SUCCESS);
    EXPECT_NE(second, h) << "handles are not reused";
}

TEST_F(DiscoveryTest, EveryCodeHasItsOwnText)
{
    std::set<std::string> texts;
    for (NXTCanError code = NXCAN_ERR_VENDOR_SPECIFIC; code <= NXCAN_ERR_SHUT_DOWN; ++code) {
        const std::string text = ErrorText(code);
        EXPECT_FALSE(text.empty()) << code;
        texts.insert(text);
    }
    EXPECT_EQ(texts.size(), static_cast<size_t>(NXCAN_ERR_SHUT_DOWN + 2));
    EXPECT_NE(ErrorText(4711).find("4711"), std::string::npos);
    EXPECT_EQ(NXCAN_GetErrorText(0, nullptr), NXCAN_ERR_INVALID_ARGUMENT);
}

}  // namespace
}  // namespace nxsim_test
