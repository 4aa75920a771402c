#include "SimBusTest.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <thread>

#include "veld_constants.h"

namespace nxbus_on_sim {

const char* const kAddress = "127.0.0.1";

void SimBusTest::TearDown()
{
    // The package reports invalid lengths and DLCs through the kernel; none
    // of the traffic here has any.
    for (const veldor::ReportRecord& report : engine.GetConsole().Captured())
        EXPECT_NE(report.level, VELD::Error) << "reported: " << report.text;
}

NxCanApiWrapperSettings SimBusTest::Monitoring(const std::string& channel, bool canFd)
{
    return NxCanApiWrapperSettings(kAddress, channel, canFd, kBitrate, canFd ? kDataBitrate : kBitrate, false, false);
}

NxCanApiWrapperSettings SimBusTest::Replay(const std::string& channel)
{
    return NxCanApiWrapperSettings(kAddress, channel, true, kBitrate, kDataBitrate, false, true);
}

std::unique_ptr<NxCanApiWrapper> SimBusTest::Open(const NxCanApiWrapperSettings& settings)
{
    auto wrapper = std::make_unique<NxCanApiWrapper>(settings);
    bool highSpeed = false;
    NxBusError result = wrapper->Initialize(&highSpeed);
    if (result.errorCode == 0) return wrapper;
    ADD_FAILURE() << "channel " << settings.GetChannelIdentifier() << " did not come up: code " << result.errorCode
                  << ", " << wrapper->GetErrorMessage(result);
    return nullptr;
}

std::vector<NXSCanMessage> SimBusTest::Receive(NxCanApiWrapper& wrapper, std::size_t count,
                                               std::chrono::milliseconds timeout)
{
    std::vector<NXSCanMessage> got;
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    for (;;) {
        const std::uint32_t n = wrapper.ReadReceiveQueue();
        const NXSCanMessage* buffer = wrapper.GetCanChannelMsgBuffer();
        got.insert(got.end(), buffer, buffer + n);
        if (got.size() >= count || std::chrono::steady_clock::now() >= deadline) break;
        // A polling wrapper has no event and returns at once; so does a wait
        // whose deadline would run past the end of the current second.
        if (!wrapper.WaitForReceiveEvent(2000, nullptr)) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return got;
}

std::uint64_t SimBusTest::Now(NxCanApiWrapper& wrapper)
{
    std::uint64_t microseconds = 0;
    NxBusError result = wrapper.GetHardwareTime(&microseconds);
    EXPECT_EQ(result.errorCode, 0) << wrapper.GetErrorMessage(result);
    return microseconds;
}

std::string Describe(const NXSCanMessage& m)
{
    char text[160];
    std::snprintf(text, sizeof text, "type %d id 0x%X idtype %d dlc %u flags 0x%X data %02X %02X %02X .. ts %llu",
                  static_cast<int>(m.tMessageType), m.ulCanIdentifier, static_cast<int>(m.tCanIdentifierType),
                  static_cast<unsigned>(m.usDLC), m.ulFlags, m.ucData[0], m.ucData[1], m.ucData[2],
                  static_cast<unsigned long long>(m.ui64Timestamp));
    return text;
}

namespace {

template <class Frame>
void ExpectPayload(const FrameFields& sent, const Frame& frame)
{
    const int stored = std::min(sent.length, static_cast<int>(sizeof frame.data));
    for (int i = 0; i < stored; ++i)
        ASSERT_EQ(frame.data[i], static_cast<VELDUInt8>(sent.seed + i)) << "payload byte " << i;
}

template <class Frame>
void ExpectIdentity(const FrameFields& sent, const Frame& frame)
{
    EXPECT_EQ(frame.GetId(), sent.id);
    EXPECT_EQ(frame.HasExtendedId(), sent.extended);
    EXPECT_EQ(frame.HasStandardId(), !sent.extended);
    EXPECT_EQ(frame.GetDataLength(), static_cast<std::size_t>(sent.length));
    ExpectPayload(sent, frame);
}

}  // namespace

void ExpectReceived(const FrameFields& sent, const NXSCanMessage& got)
{
    SCOPED_TRACE(Describe(got));
    EXPECT_EQ(got.tMessageType, NXCAN_MESSAGE_TYPE_DATA);
    EXPECT_EQ(got.ulCanIdentifier, sent.id);
    EXPECT_EQ(got.tCanIdentifierType, sent.extended ? NXCAN_IDENTIFIER_TYPE_XTD : NXCAN_IDENTIFIER_TYPE_STD);
    EXPECT_EQ(NxCanApiWrapper::FrameDlcToDataLength(got.usDLC), sent.length);
    EXPECT_EQ((got.ulFlags & 0x100) != 0, sent.fd) << "CAN FD format, bit 8 on reception";
    EXPECT_EQ((got.ulFlags & NXCAN_FLAG_RX_BRS) != 0, sent.brs) << "bit rate switch, bit 9 on reception";
    for (int i = 0; i < sent.length; ++i)
        ASSERT_EQ(got.ucData[i], static_cast<std::uint8_t>(sent.seed + i)) << "payload byte " << i;
}

void ExpectFrameRecords(const FrameFields& sent, const NXSCanMessage& got, std::uint64_t from, std::uint64_t to)
{
    SCOPED_TRACE(Describe(got));
    const VELDTimestamp offset = 1000000;
    const VELDTimestamp expected =
        offset + static_cast<VELDTimestamp>(got.ui64Timestamp / NxCanApiWrapper::GetTimeConvCoefficient());
    EXPECT_GE(expected - offset, static_cast<VELDTimestamp>(from)) << "received before it was sent";
    EXPECT_LE(expected - offset, static_cast<VELDTimestamp>(to)) << "received after it was read";

    VELDCANFrame classic;
    std::memset(static_cast<void*>(&classic), 0xEE, sizeof classic);
    EXPECT_EQ(NxCanApiWrapper::CopyFrameMon(classic, got, offset), expected);
    EXPECT_EQ(classic.GetTimestamp(), expected);
    EXPECT_FALSE(classic.isRemote);
    ExpectIdentity(sent, classic);

    VELDCANFDFrame fd;
    std::memset(static_cast<void*>(&fd), 0xEE, sizeof fd);
    EXPECT_EQ(NxCanApiWrapper::CopyFrameMon(fd, got, offset), expected);
    EXPECT_EQ(fd.GetTimestamp(), expected);
    ExpectIdentity(sent, fd);

    VELDCANUniFrame universal;
    EXPECT_EQ(NxCanApiWrapper::CopyFrameMon(universal, got, offset), expected);
    EXPECT_EQ(universal.GetTimestamp(), expected);
    ExpectIdentity(sent, universal);
    EXPECT_TRUE(universal.HasFlag<VELDCANUniFrame::Flag_RX>() && universal.GetFlag<VELDCANUniFrame::Flag_RX>());
    EXPECT_TRUE(universal.HasFlag<VELDCANUniFrame::Flag_BRS>());
    EXPECT_EQ(universal.GetFlag<VELDCANUniFrame::Flag_BRS>(), sent.brs);
}

void ExpectTraffic(const std::vector<FrameFields>& sent, const std::vector<NXSCanMessage>& got, std::uint64_t from,
                   std::uint64_t to)
{
    ASSERT_EQ(got.size(), sent.size()) << "frames received";
    std::uint64_t previous = 0;
    for (std::size_t i = 0; i < sent.size(); ++i) {
        SCOPED_TRACE("frame " + std::to_string(i));
        ExpectReceived(sent[i], got[i]);
        ExpectFrameRecords(sent[i], got[i], from, to);
        EXPECT_GE(got[i].ui64Timestamp, previous) << "out of order";
        previous = got[i].ui64Timestamp;
        if (::testing::Test::HasFailure()) return;  // one frame's story is enough
    }
}

}  // namespace nxbus_on_sim
