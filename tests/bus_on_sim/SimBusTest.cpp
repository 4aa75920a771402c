#include "SimBusTest.h"

#include <cstdio>
#include <cstring>
#include <type_traits>
#include <thread>

#include "veld_constants.h"

namespace nxbus_on_sim {

const char* const kAddress = "127.0.0.1";

namespace {

template <class Frame>
Frame MakeRecord(const FrameFields& f)
{
    Frame frame;
    if constexpr (!std::is_same<Frame, VELDCANUniFrame>::value) std::memset(static_cast<void*>(&frame), 0, sizeof frame);
    if (f.extended)
        frame.SetExtendedId(f.id);
    else
        frame.SetStandardId(f.id);
    if constexpr (std::is_same<Frame, VELDCANUniFrame>::value) {
        frame.SetFD(f.fd);
        frame.template SetFlag<VELDCANUniFrame::Flag_BRS>(f.brs);
        frame.template SetFlag<VELDCANUniFrame::Flag_TX>(true);
    }
    frame.SetDataLength(static_cast<std::size_t>(f.length));
    for (int i = 0; i < f.length && i < static_cast<int>(sizeof frame.data); ++i)
        frame.data[i] = static_cast<VELDUInt8>(f.seed + i);
    frame.SetTimestamp(f.ts);
    return frame;
}

// Calls `use` with the frame's record.
template <class Use>
auto WithRecord(const FrameFields& f, Use use)
{
    switch (f.record) {
    case Record::Classic:
        return use(MakeRecord<VELDCANFrame>(f));
    case Record::Fd:
        return use(MakeRecord<VELDCANFDFrame>(f));
    case Record::Universal:
        break;
    }
    return use(MakeRecord<VELDCANUniFrame>(f));
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

}  // namespace

std::vector<FrameFields> MixedTraffic(VELDTimestamp ts)
{
    std::vector<FrameFields> frames;
    auto add = [&](Record record, std::uint32_t id, bool extended, int length, bool fd, bool brs) {
        frames.push_back({record, id, extended, length, fd, brs, static_cast<std::uint8_t>(frames.size() * 7), ts});
    };
    for (int length = 0; length <= 8; ++length) {
        add(Record::Classic, 0x100 + length, false, length, false, false);
        add(Record::Classic, length == 8 ? 0x1FFFFFFF : 0x1ABC000 + length, true, length, false, false);
        add(Record::Universal, 0x7F7 + length, false, length, false, false);
    }
    int n = 0;
    for (int length : {0, 1, 2, 3, 4, 5, 6, 7, 8, 12, 16, 20, 24, 32, 48, 64}) {
        ++n;
        add(Record::Fd, n % 2 ? 0x200 + n : 0x0BCD0000 + n, n % 2 == 0, length, true, true);
        add(Record::Universal, n % 2 ? 0x0DEF0000 + n : 0x300 + n, n % 2 == 1, length, true, false);
    }
    add(Record::Universal, 0x7FF, false, 64, true, true);
    add(Record::Universal, 0x1FFFFFFF, true, 12, true, true);
    return frames;
}

void SimBusTest::TearDown()
{
    // The package reports invalid lengths and DLCs through the kernel; none
    // of the traffic here has any.
    for (const veldor::ReportRecord& report : engine.GetConsole().Captured())
        EXPECT_NE(report.level, VELD::Error) << "reported: " << report.text;
}

NxCanApiWrapperSettings SimBusTest::Monitoring(const std::string& channel)
{
    return NxCanApiWrapperSettings(kAddress, channel, true, 500000, 2000000, false, false);
}

NxCanApiWrapperSettings SimBusTest::Replay(const std::string& channel)
{
    return NxCanApiWrapperSettings(kAddress, channel, true, 500000, 2000000, false, true);
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
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return got;
}

std::vector<NXSCanMessage> SimBusTest::ToMessages(const std::vector<FrameFields>& frames)
{
    std::vector<NXSCanMessage> messages;
    for (const FrameFields& f : frames) {
        NXSCanMessage message;
        std::memset(&message, 0, sizeof message);
        WithRecord(f, [&](const auto& record) { NxCanApiWrapper::CopyFrame(message, record); });
        messages.push_back(message);
    }
    return messages;
}

NxBusError SimBusTest::Stage(NxCanApiWrapper& wrapper, const FrameFields& frame)
{
    return WithRecord(frame, [&](const auto& record) { return wrapper.CopyFrame2(record); });
}

void ExpectReceived(const std::vector<FrameFields>& sent, const std::vector<NXSCanMessage>& got)
{
    ASSERT_EQ(got.size(), sent.size()) << "frames received";
    for (std::size_t k = 0; k < sent.size() && !::testing::Test::HasFailure(); ++k) {
        SCOPED_TRACE("frame " + std::to_string(k) + ": " + Describe(got[k]));
        const FrameFields& f = sent[k];
        EXPECT_EQ(got[k].tMessageType, NXCAN_MESSAGE_TYPE_DATA);
        EXPECT_EQ(got[k].ulCanIdentifier, f.id);
        EXPECT_EQ(got[k].tCanIdentifierType, f.extended ? NXCAN_IDENTIFIER_TYPE_XTD : NXCAN_IDENTIFIER_TYPE_STD);
        EXPECT_EQ(NxCanApiWrapper::FrameDlcToDataLength(got[k].usDLC), f.length);
        EXPECT_EQ((got[k].ulFlags & 0x100) != 0, f.fd) << "CAN FD format, bit 8 on reception";
        EXPECT_EQ((got[k].ulFlags & NXCAN_FLAG_RX_BRS) != 0, f.brs) << "bit rate switch, bit 9 on reception";
        for (int i = 0; i < f.length; ++i)
            ASSERT_EQ(got[k].ucData[i], static_cast<std::uint8_t>(f.seed + i)) << "payload byte " << i;
        if (k > 0) {
            EXPECT_GE(got[k].ui64Timestamp, got[k - 1].ui64Timestamp) << "out of order";
        }
    }
}

}  // namespace nxbus_on_sim
