// Shared fixture of the simulator's tests: a private shared-memory namespace
// per test, optional configuration text, and small helpers around the API.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "NXBusApiCan.h"

namespace nxsim_test {

class SimTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    // Writes `text` to a configuration file and makes the library read it.
    void UseConfig(const std::string& text);
    const std::string& NameSpace() const { return m_nameSpace; }

    // Registers (as the package does, from the listed record), initialises
    // for `type` identifiers into a queue of `queueSize`, and activates a
    // channel.
    NXTCanHandle Open(const std::string& id, bool canFd = true, bool replay = false, bool highSpeed = false,
                      NXECanIdentifierType type = NXCAN_IDENTIFIER_TYPE_STD_XTD, uint32_t queueSize = 32768);

    // Reads until `count` messages have arrived or the timeout passes.
    std::vector<NXSCanMessage> ReadAtLeast(NXTCanHandle handle, size_t count,
                                           std::chrono::milliseconds timeout = std::chrono::seconds(5));

    uint64_t HardwareTime(NXTCanHandle handle);
    uint64_t TicksPerMicrosecond(NXTCanHandle handle);

private:
    std::string m_nameSpace;
    std::string m_configPath;
};

// Registers a listed channel as the package does, from its record.
NXTCanError Register(const std::string& id, NXTCanHandle* handle, bool replay = false, bool highSpeed = false);
NXSCanMessage DataFrame(uint32_t id, uint16_t dlc, bool extended = false, uint32_t flags = 0, uint8_t seed = 0);
// `count` frames of `dlc` with identifiers counting up from `first`.
std::vector<NXSCanMessage> DataFrames(uint32_t first, size_t count, uint16_t dlc);
// A bus at 127.0.0.1 with `settings`, and its channels A and B.
std::string TwoChannelBus(const std::string& settings);
std::vector<NXSCanChannelInfo> ListChannels(const char* address);
std::string ErrorText(NXTCanError code);
std::string VendorText(NXTCanHandle handle, int32_t* code);

// Appends one replay record to `stream`, made by NXCAN_ReplayInitHeader.
void AppendRecord(std::vector<uint8_t>& stream, uint64_t timestamp, uint32_t id, uint16_t dlc, uint32_t flags = 0,
                  bool extended = false);
void AppendEndRecord(std::vector<uint8_t>& stream);
NXSCanReplayStatusInfo ReplayStatus(NXTCanHandle handle);

}  // namespace nxsim_test
