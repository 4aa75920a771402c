// Shared fixture of the simulator's tests: a private shared-memory namespace
// per test, optional configuration text, and small helpers around the API.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "NXBusApiCan.h"
#include "scratch.h"
#include "simulator.h"

namespace nxsim_test {

inline std::vector<NXSCanChannelInfo> ListChannels(const char* address)
{
    NXSCanChannelsSearchAttribute attribute{NXCAN_SEARCH_ARRTIBUTE_TYPE_IP_V4_ADDRESS, ""};
    std::strncpy(attribute.szSearchAttribute, address, sizeof attribute.szSearchAttribute - 1);
    uint32_t count = 0;
    if (NXCAN_GetAvailableChannelsCount(&count, 1, &attribute) != NXCAN_SUCCESS) return {};
    std::vector<NXSCanChannelInfo> channels(count);
    if (NXCAN_GetAvailableChannels(&count, channels.data(), 1, &attribute) != NXCAN_SUCCESS) return {};
    channels.resize(count);
    return channels;
}

// Registers a listed channel as the package does, from its record.
inline NXTCanError Register(const std::string& id, NXTCanHandle* handle, bool replay = false, bool highSpeed = false)
{
    for (NXSCanChannelInfo& c : ListChannels("127.0.0.1")) {
        if (id != c.szChannelIdentifier) continue;
        return replay ? NXCAN_RegisterReplayChannel(c.szVendorName, c.szInterfaceName, c.szInterfaceSerialNumber,
                                                    c.szChannelIdentifier, handle, highSpeed, 0)
                      : NXCAN_RegisterChannel(c.szVendorName, c.szInterfaceName, c.szInterfaceSerialNumber,
                                              c.szChannelIdentifier, handle);
    }
    return NXCAN_ERR_CHANNEL_NOT_FOUND;
}

inline std::string ErrorText(NXTCanError code)
{
    char text[NXCAN_TEXT_BUFFER_SIZE];
    std::memset(text, 'x', sizeof text);
    return NXCAN_GetErrorText(code, text) == NXCAN_SUCCESS ? text : "<no text>";
}

inline std::string VendorText(NXTCanHandle handle, int32_t* code)
{
    char text[NXCAN_TEXT_BUFFER_SIZE] = {};
    EXPECT_EQ(NXCAN_GetLastVendorSpecificError(handle, code, text), NXCAN_SUCCESS);
    return text;
}

// Payload byte i is seed + 7i, all 64 of them.
inline NXSCanMessage DataFrame(uint32_t id, uint16_t dlc, bool extended = false, uint32_t flags = 0, uint8_t seed = 0)
{
    NXSCanMessage m{};
    m.tMessageType = NXCAN_MESSAGE_TYPE_DATA;
    m.ulCanIdentifier = id;
    m.tCanIdentifierType = extended ? NXCAN_IDENTIFIER_TYPE_XTD : NXCAN_IDENTIFIER_TYPE_STD;
    m.ulFlags = flags;
    m.usDLC = dlc;
    for (int i = 0; i < 64; ++i) m.ucData[i] = static_cast<uint8_t>(seed + i * 7);
    return m;
}

// `count` frames of `dlc` with identifiers counting up from `first`.
inline std::vector<NXSCanMessage> DataFrames(uint32_t first, size_t count, uint16_t dlc)
{
    std::vector<NXSCanMessage> frames;
    for (size_t i = 0; i < count; ++i) frames.push_back(DataFrame(first + static_cast<uint32_t>(i), dlc));
    return frames;
}

// A bus at 127.0.0.1 with `settings`, and its channels A and B.
inline std::string TwoChannelBus(const std::string& settings)
{
    return "[bus slow]\naddress = 127.0.0.1\n" + settings +
           "[channel A]\nvendor = Norvex\ninterface = i\n[channel B]\nvendor = Norvex\ninterface = i\n";
}

// Appends one replay record to `stream`, made by NXCAN_ReplayInitHeader,
// whose payload byte i is id + i; or the closing record.
inline void AppendRecord(std::vector<uint8_t>& stream, uint64_t timestamp, uint32_t id, uint16_t dlc,
                         uint32_t flags = 0, bool extended = false)
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
    const size_t head = offsetof(NXSCanReplayData, ui64StartOfMsgData);
    for (uint32_t i = 0; i < size - head; ++i) stream[at + head + i] = static_cast<uint8_t>(id + i);
    stream.resize(at + size);
}

inline void AppendEndRecord(std::vector<uint8_t>& stream)
{
    const size_t at = stream.size();
    stream.resize(at + sizeof(NXSCanReplayData));
    uint32_t size = 0;
    ASSERT_EQ(NXCAN_ReplayInitHeader(reinterpret_cast<NXSCanReplayData*>(stream.data() + at), true, 0, &size),
              NXCAN_SUCCESS);
    ASSERT_EQ(size, sizeof(NXSCanReplayData));
}

inline NXSCanReplayStatusInfo ReplayStatus(NXTCanHandle handle)
{
    NXSCanReplayStatusInfo info{};
    EXPECT_EQ(NXCAN_GetReplayStateInfo(handle, &info), NXCAN_SUCCESS);
    return info;
}

class SimTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        static std::atomic<int> counter{0};
        m_nameSpace = "test-" + std::to_string(getpid()) + "-" + std::to_string(counter++);
        setenv("NXBUSAPI_SIM_NAMESPACE", m_nameSpace.c_str(), 1);
        unsetenv("NXBUSAPI_SIM_CONFIG");
        nxsim::Simulator::Instance().ResetForTests();
    }
    void TearDown() override
    {
        nxsim::Simulator::Instance().ResetForTests();
        unsetenv("NXBUSAPI_SIM_CONFIG");
        unsetenv("NXBUSAPI_SIM_NAMESPACE");
    }

    // Writes `text` to a configuration file and makes the library read it.
    void UseConfig(const std::string& text)
    {
        const std::string path = m_folder / "nxsim-test-config";
        veldtest::WriteText(path, text);
        setenv("NXBUSAPI_SIM_CONFIG", path.c_str(), 1);
        nxsim::Simulator::Instance().ResetForTests();
    }
    const std::string& NameSpace() const { return m_nameSpace; }

    // Registers, initialises for `type` identifiers into a queue of
    // `queueSize`, and activates a channel.
    NXTCanHandle Open(const std::string& id, bool canFd = true, bool replay = false, bool highSpeed = false,
                      NXECanIdentifierType type = NXCAN_IDENTIFIER_TYPE_STD_XTD, uint32_t queueSize = 32768)
    {
        NXTCanHandle handle = NXCAN_INVALID_HANDLE;
        EXPECT_EQ(Register(id, &handle, replay, highSpeed), NXCAN_SUCCESS) << id;
        bool fdSupported = false;
        EXPECT_EQ(NXCAN_InitChannel(handle, type, queueSize, canFd, &fdSupported), NXCAN_SUCCESS);
        EXPECT_TRUE(fdSupported);
        EXPECT_EQ(NXCAN_ActivateChannel(handle), NXCAN_SUCCESS);
        return handle;
    }

    // Reads until `count` messages have arrived or the timeout passes.
    std::vector<NXSCanMessage> ReadAtLeast(NXTCanHandle handle, size_t count,
                                           std::chrono::milliseconds timeout = std::chrono::seconds(5))
    {
        std::vector<NXSCanMessage> all, buffer(1024);
        const auto deadline = std::chrono::steady_clock::now() + timeout;
        while (all.size() < count && std::chrono::steady_clock::now() < deadline) {
            uint32_t n = static_cast<uint32_t>(buffer.size());
            const NXTCanError rc = NXCAN_ReadReceiveQueue(handle, &n, buffer.data());
            EXPECT_EQ(rc, NXCAN_SUCCESS) << ErrorText(rc);
            all.insert(all.end(), buffer.begin(), buffer.begin() + n);
            if (n == 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        return all;
    }

    uint64_t HardwareTime(NXTCanHandle handle)
    {
        uint64_t ticks = 0;
        EXPECT_EQ(NXCAN_GetHardwareTime(handle, &ticks), NXCAN_SUCCESS);
        return ticks;
    }
    uint64_t TicksPerMicrosecond(NXTCanHandle handle)
    {
        uint64_t resolution = 0;
        EXPECT_EQ(NXCAN_GetHardwareTimeResolution(handle, &resolution), NXCAN_SUCCESS);
        return resolution / 1000000;
    }

private:
    std::string m_nameSpace;
    veldtest::ScratchDir m_folder{"nxsim"};
};

}  // namespace nxsim_test
