// Discovery, claims across processes, errors and injected faults.
#include <cstring>

#include "ChildProcess.h"
#include "eth_test_support.h"

namespace eth_test {
namespace {

std::vector<std::string> Identifiers(const std::vector<NXSEthInterfaceInfo>& infos)
{
    std::vector<std::string> ids;
    for (const auto& info : infos) ids.push_back(info.szInterfaceIdentifier);
    return ids;
}

TEST(EthDiscovery, AnAddressFindsItsInterfacesWhoseDeviceIsHere)
{
    const struct {
        std::vector<std::string> addresses;
        std::vector<std::string> found;
    } cases[] = {
        {{}, {"NVX-ETH-1", "NVX-ETH-2", "NVX-ETH-2-RAW", "NVX-ETH-2-SMALL"}},
        {{"127.0.0.1"}, {"NVX-ETH-1", "NVX-ETH-2", "NVX-ETH-2-RAW"}},
        {{"192.0.2.10"}, {"NVX-ETH-2-SMALL"}},
        {{"10.1.2.3", "192.0.2.10"}, {"NVX-ETH-2-SMALL"}},
        {{"10.1.2.3"}, {}},
        {{"localhost"}, {}},
    };
    for (const auto& c : cases)
        EXPECT_EQ(Identifiers(Discover(c.addresses)), c.found) << testing::PrintToString(c.addresses);

    const auto infos = Discover({"127.0.0.1"});
    ASSERT_EQ(infos.size(), 3u);
    EXPECT_STREQ(infos[0].szAccessProviderName, "Norvex");
    EXPECT_STREQ(infos[0].szInterfaceName, "NVX Automotive Ethernet Interface");
    EXPECT_STREQ(infos[0].szInterfaceSerialNumber, "NVXE-000205");
    EXPECT_EQ(infos[0].ulInterfaceCapabilities, NXETH_CAPABILITY_HIGH_SPEED_REPLAY);
    EXPECT_EQ(infos[1].ulInterfaceCapabilities, 0u);
    const uint8_t device1[6] = {0x02, 0x4e, 0x58, 0x45, 0x00, 0x01};
    EXPECT_EQ(std::memcmp(infos[0].ucInterfaceMacAddress, device1, 6), 0) << "the device's own address";
    const uint8_t configured[6] = {0x02, 0x00, 0x00, 0x00, 0x0a, 0x0b};
    EXPECT_EQ(std::memcmp(Discover({"192.0.2.10"})[0].ucInterfaceMacAddress, configured, 6), 0);

    NXSEthInterfacesSearchAttribute wrongType{};
    wrongType.tSearchAttributeType = static_cast<NXEEthInterfacesSearchAttributeType>(2);
    uint32_t count = 0;
    EXPECT_EQ(Lib().GetAvailableInterfacesCount(&count, 1, &wrongType), NXETH_ERR_INVALID_ARGUMENT);
    NXTEthHandle h = NXETH_INVALID_HANDLE;
    char vendor[] = "Norvex", absent[] = "NVX-ETH-9";
    EXPECT_EQ(Lib().RegisterInterface(vendor, nullptr, nullptr, absent, &h), NXETH_ERR_INTERFACE_NOT_FOUND);
    EXPECT_NE(ErrorText(NXETH_ERR_INTERFACE_NOT_FOUND).find("nvxeth9 is not here"), std::string::npos);
}

TEST(EthClaims, AnInterfaceBelongsToOneRegistrationAcrossProcesses)
{
    nxtest::ChildProcess holder(BUSAPI_ETH_TESTS, {"hold", "NVX-ETH-1"});
    ASSERT_EQ(holder.Line(), "ready");
    NXTEthHandle h = NXETH_INVALID_HANDLE;
    EXPECT_EQ(Register("NVX-ETH-1", &h), NXETH_ERR_INTERFACE_IN_USE);
    EXPECT_NE(ErrorText(NXETH_ERR_INTERFACE_IN_USE).find(std::to_string(holder.Pid())), std::string::npos);
    NXTEthHandle other = NXETH_INVALID_HANDLE;
    ASSERT_EQ(Register("NVX-ETH-2", &other), NXETH_SUCCESS) << "other interfaces stay free";
    NXTEthHandle again = NXETH_INVALID_HANDLE;
    EXPECT_EQ(Register("NVX-ETH-2", &again), NXETH_ERR_INTERFACE_IN_USE) << "in this process too";
    EXPECT_EQ(Lib().UnregisterInterface(other), NXETH_SUCCESS);
    // A dead holder's claims go as the CAN library's do (the claims live in
    // the same shared segment code): busapi_sim's ProcessTest.
}

TEST(EthLifecycle, CallsOutOfOrderAndFaultsAreRefusedWithTheirCodes)
{
    NXTEthHandle h = NXETH_INVALID_HANDLE;
    ASSERT_EQ(Register("NVX-ETH-2-SMALL", &h), NXETH_SUCCESS);
    uint8_t buffer[2048];
    uint32_t n = 1;
    EXPECT_EQ(Lib().ReadFrames(h, sizeof buffer, buffer, &n), NXETH_ERR_WRONG_STATE) << "not initialised";
    EXPECT_EQ(Lib().ActivateInterface(h), NXETH_ERR_WRONG_STATE);
    EXPECT_EQ(Lib().InitInterface(h), NXETH_SUCCESS);
    EXPECT_EQ(Lib().ReadFrames(h, sizeof buffer, buffer, &n), NXETH_SUCCESS);
    EXPECT_EQ(n, 0u) << "initialised, not receiving";
    bool accessible = false;
    EXPECT_EQ(Lib().IsInterfaceAccessible(h, &accessible), NXETH_SUCCESS);
    EXPECT_TRUE(accessible);
    NXSEthReplayStatusInfo status{};
    EXPECT_EQ(Lib().GetReplayStateInfo(h, &status), NXETH_ERR_NOT_REPLAY_INTERFACE);

    // The configuration fails the second flush, once, with a provider code.
    EXPECT_EQ(Lib().FlushTransmitQueue(h), NXETH_SUCCESS);
    EXPECT_EQ(Lib().FlushTransmitQueue(h), NXETH_ERR_PROVIDER_SPECIFIC);
    int32_t code = 0;
    char text[NXETH_TEXT_BUFFER_SIZE] = {};
    EXPECT_EQ(Lib().GetLastAccessProviderSpecificError(h, &code, text), NXETH_SUCCESS);
    EXPECT_EQ(code, 77);
    EXPECT_STREQ(text, "injected");
    EXPECT_EQ(Lib().FlushTransmitQueue(h), NXETH_SUCCESS);

    EXPECT_EQ(Lib().UnregisterInterface(h), NXETH_SUCCESS);
    EXPECT_EQ(Lib().InitInterface(h), NXETH_ERR_INVALID_HANDLE);
    for (NXTEthError c = NXETH_ERR_PROVIDER_SPECIFIC; c <= NXETH_ERR_INVALID_FILTER; ++c)
        EXPECT_EQ(ErrorText(c).find("unknown"), std::string::npos) << c;
}

// Without a configuration file (CTest runs this one on its own, with
// BUSAPI_ETH_DEFAULT_TOPOLOGY set): the two ends of tools/with-sim-bus's
// veth pair, and nothing of the library but its 24 operations to be seen.
TEST(EthDefault, TheTwoEndsOfTheVethPairAreFoundAtTheLoopbackAddress)
{
    const auto infos = Discover({"127.0.0.1"});
    ASSERT_EQ(infos.size(), 2u);
    const uint8_t macs[2][6] = {{0x02, 0x4e, 0x58, 0x45, 0x00, 0x01}, {0x02, 0x4e, 0x58, 0x45, 0x00, 0x02}};
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(std::string(infos[i].szInterfaceIdentifier), "NVX-ETH-" + std::to_string(i + 1));
        EXPECT_STREQ(infos[i].szAccessProviderName, "Norvex");
        EXPECT_EQ(std::memcmp(infos[i].ucInterfaceMacAddress, macs[i], 6), 0);
        EXPECT_EQ(infos[i].ulInterfaceCapabilities, i == 0 ? NXETH_CAPABILITY_HIGH_SPEED_REPLAY : 0u);
    }
    const NXTEthHandle h = Open("NVX-ETH-2");
    uint32_t size = 0;
    EXPECT_EQ(Lib().GetInterfaceBufferSize(h, &size), NXETH_SUCCESS);
    EXPECT_GE(size, 714336u) << "a sampling period of a gigabit link, at least";
    Close({h});
}

}  // namespace
}  // namespace eth_test
