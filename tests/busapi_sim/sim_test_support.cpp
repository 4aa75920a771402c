#include "sim_test_support.h"

#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <thread>

#include "simulator.h"

namespace nxsim_test {

void SimTest::SetUp()
{
    static std::atomic<int> counter{0};
    m_nameSpace = "test-" + std::to_string(getpid()) + "-" + std::to_string(counter++);
    setenv("NXBUSAPI_SIM_NAMESPACE", m_nameSpace.c_str(), 1);
    unsetenv("NXBUSAPI_SIM_CONFIG");
    nxsim::Simulator::Instance().ResetForTests();
}

void SimTest::TearDown()
{
    nxsim::Simulator::Instance().ResetForTests();
    unsetenv("NXBUSAPI_SIM_CONFIG");
    unsetenv("NXBUSAPI_SIM_NAMESPACE");
    if (!m_configPath.empty())
        std::remove(m_configPath.c_str());
}

void SimTest::UseConfig(const std::string& text)
{
    if (m_configPath.empty()) {
        char path[] = "/tmp/nxsim-test-XXXXXX";
        const int fd = mkstemp(path);
        ASSERT_GE(fd, 0);
        close(fd);
        m_configPath = path;
    }
    std::ofstream(m_configPath) << text;
    setenv("NXBUSAPI_SIM_CONFIG", m_configPath.c_str(), 1);
    nxsim::Simulator::Instance().ResetForTests();
}

NXTCanError Register(const std::string& id, NXTCanHandle* handle, bool replay, bool highSpeed)
{
    for (NXSCanChannelInfo& info : ListChannels("127.0.0.1")) {
        if (id != info.szChannelIdentifier)
            continue;
        if (replay)
            return NXCAN_RegisterReplayChannel(info.szVendorName, info.szInterfaceName,
                                               info.szInterfaceSerialNumber, info.szChannelIdentifier, handle,
                                               highSpeed, 0);
        return NXCAN_RegisterChannel(info.szVendorName, info.szInterfaceName, info.szInterfaceSerialNumber,
                                     info.szChannelIdentifier, handle);
    }
    return NXCAN_ERR_CHANNEL_NOT_FOUND;
}

NXTCanHandle SimTest::Open(const std::string& id, bool canFd, bool replay, bool highSpeed, NXECanIdentifierType type,
                           uint32_t queueSize)
{
    NXTCanHandle handle = NXCAN_INVALID_HANDLE;
    EXPECT_EQ(Register(id, &handle, replay, highSpeed), NXCAN_SUCCESS) << id;
    bool fdSupported = false;
    EXPECT_EQ(NXCAN_InitChannel(handle, type, queueSize, canFd, &fdSupported), NXCAN_SUCCESS);
    EXPECT_TRUE(fdSupported);
    EXPECT_EQ(NXCAN_ActivateChannel(handle), NXCAN_SUCCESS);
    return handle;
}

std::vector<NXSCanMessage> SimTest::ReadAtLeast(NXTCanHandle handle, size_t count, std::chrono::milliseconds timeout)
{
    std::vector<NXSCanMessage> all;
    std::vector<NXSCanMessage> buffer(1024);
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (all.size() < count && std::chrono::steady_clock::now() < deadline) {
        uint32_t n = static_cast<uint32_t>(buffer.size());
        const NXTCanError rc = NXCAN_ReadReceiveQueue(handle, &n, buffer.data());
        EXPECT_EQ(rc, NXCAN_SUCCESS) << ErrorText(rc);
        all.insert(all.end(), buffer.begin(), buffer.begin() + n);
        if (n == 0)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return all;
}

uint64_t SimTest::HardwareTime(NXTCanHandle handle)
{
    uint64_t ticks = 0;
    EXPECT_EQ(NXCAN_GetHardwareTime(handle, &ticks), NXCAN_SUCCESS);
    return ticks;
}

uint64_t SimTest::TicksPerMicrosecond(NXTCanHandle handle)
{
    uint64_t resolution = 0;
    EXPECT_EQ(NXCAN_GetHardwareTimeResolution(handle, &resolution), NXCAN_SUCCESS);
    return resolution / 1000000;
}

NXSCanMessage DataFrame(uint32_t id, uint16_t dlc, bool extended, uint32_t flags, uint8_t seed)
{
    NXSCanMessage m{};
    m.tMessageType = NXCAN_MESSAGE_TYPE_DATA;
    m.ulCanIdentifier = id;
    m.tCanIdentifierType = extended ? NXCAN_IDENTIFIER_TYPE_XTD : NXCAN_IDENTIFIER_TYPE_STD;
    m.ulFlags = flags;
    m.usDLC = dlc;
    for (int i = 0; i < 64; ++i)
        m.ucData[i] = static_cast<uint8_t>(seed + i * 7);
    return m;
}

std::vector<NXSCanMessage> DataFrames(uint32_t first, size_t count, uint16_t dlc)
{
    std::vector<NXSCanMessage> frames;
    for (size_t i = 0; i < count; ++i)
        frames.push_back(DataFrame(first + static_cast<uint32_t>(i), dlc));
    return frames;
}

std::string TwoChannelBus(const std::string& settings)
{
    return "[bus slow]\naddress = 127.0.0.1\n" + settings +
           "[channel A]\nvendor = Norvex\ninterface = i\n[channel B]\nvendor = Norvex\ninterface = i\n";
}

std::vector<NXSCanChannelInfo> ListChannels(const char* address)
{
    NXSCanChannelsSearchAttribute attribute{};
    attribute.tSearchAttributeType = NXCAN_SEARCH_ARRTIBUTE_TYPE_IP_V4_ADDRESS;
    std::strncpy(attribute.szSearchAttribute, address, sizeof attribute.szSearchAttribute - 1);
    uint32_t count = 0;
    if (NXCAN_GetAvailableChannelsCount(&count, 1, &attribute) != NXCAN_SUCCESS)
        return {};
    std::vector<NXSCanChannelInfo> channels(count);
    if (NXCAN_GetAvailableChannels(&count, channels.data(), 1, &attribute) != NXCAN_SUCCESS)
        return {};
    channels.resize(count);
    return channels;
}

std::string ErrorText(NXTCanError code)
{
    char text[NXCAN_TEXT_BUFFER_SIZE];
    std::memset(text, 'x', sizeof text);
    if (NXCAN_GetErrorText(code, text) != NXCAN_SUCCESS)
        return "<no text>";
    return text;
}

std::string VendorText(NXTCanHandle handle, int32_t* code)
{
    char text[NXCAN_TEXT_BUFFER_SIZE] = {};
    EXPECT_EQ(NXCAN_GetLastVendorSpecificError(handle, code, text), NXCAN_SUCCESS);
    return text;
}

void AppendRecord(std::vector<uint8_t>& stream, uint64_t timestamp, uint32_t id, uint16_t dlc, uint32_t flags,
                  bool extended)
{
    const size_t at = stream.size();
    stream.resize(at + 128);
    auto* record = reinterpret_cast<NXSCanReplayData*>(stream.data() + at);
    uint32_t size = 0;
    ASSERT_EQ(NXCAN_ReplayInitHeader(record, false, dlc, &size), NXCAN_SUCCESS);
    record->tHeader.ui64Timestamp = timestamp;
    record->tMsgHeader.tMessageType = NXCAN_MESSAGE_TYPE_DATA;
    record->tMsgHeader.ulCanId = id;
    record->tMsgHeader.tMsgFormat = extended ? NXCAN_IDENTIFIER_TYPE_XTD : NXCAN_IDENTIFIER_TYPE_STD;
    record->tMsgHeader.ulFlags = flags;
    uint8_t* payload = stream.data() + at + offsetof(NXSCanReplayData, ui64StartOfMsgData);
    for (uint32_t i = 0; i < size - offsetof(NXSCanReplayData, ui64StartOfMsgData); ++i)
        payload[i] = static_cast<uint8_t>(id + i);
    stream.resize(at + size);
}

void AppendEndRecord(std::vector<uint8_t>& stream)
{
    const size_t at = stream.size();
    stream.resize(at + sizeof(NXSCanReplayData));
    uint32_t size = 0;
    ASSERT_EQ(NXCAN_ReplayInitHeader(reinterpret_cast<NXSCanReplayData*>(stream.data() + at), true, 0, &size),
              NXCAN_SUCCESS);
    ASSERT_EQ(size, sizeof(NXSCanReplayData));
}

NXSCanReplayStatusInfo ReplayStatus(NXTCanHandle handle)
{
    NXSCanReplayStatusInfo info{};
    EXPECT_EQ(NXCAN_GetReplayStateInfo(handle, &info), NXCAN_SUCCESS);
    return info;
}

}  // namespace nxsim_test
