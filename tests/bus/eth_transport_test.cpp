// Frames through the Ethernet wrapper: the PCAP conversions with their check
// sequence rule, reading and direct transmission, and the replay through the
// pre-processing stage into the stream.
#include <cstring>

#include "bus_test_fixture.h"

namespace {

using EthTransport = EthBusTest;

// A packet of `length` bytes counting up from `first`, at `microseconds`.
struct Packet {
    VELDpcap_packet_header_t header;
    std::vector<std::uint8_t> bytes;
};

Packet MakePacket(std::uint32_t length, std::uint8_t first, std::uint64_t microseconds)
{
    Packet packet{{length, length, microseconds / 1000000, microseconds % 1000000}, {}};
    for (std::uint32_t i = 0; i < length; ++i) packet.bytes.push_back(static_cast<std::uint8_t>(first + i));
    return packet;
}

const auto kNeverStop = [] { return false; };

}  // namespace

TEST_F(EthTransport, TheTwoNotInitialisedMessagesDifferByOneCapital)
{
    auto idle = Make(Replay());
    std::uint8_t block[64] = {};
    std::uint32_t size = 0;
    EXPECT_EQ(Thrown([&] { idle->ReadFrames(sizeof block, block, &size); }), "Ethernet handle is not initialized");
    EXPECT_EQ(Thrown([&] { idle->GetInterfaceBufferSize(&size); }), "Ethernet handle is not initialized");
    EXPECT_EQ(Thrown([&] { idle->TransmitFrames(block, 0); }), "Ethernet Handle is not initialized");
    Packet packet = MakePacket(60, 0, 0);
    EXPECT_EQ(Thrown([&] { idle->CopyFrame2(packet.bytes.data(), &packet.header, kNeverStop); }),
              "Ethernet Handle is not initialized");
    EXPECT_EQ(Thrown([&] { Make(Monitoring())->CopyFrame2(packet.bytes.data(), &packet.header, kNeverStop); }),
              "Destination buffer is null!");
    // A push before Initialize does nothing and succeeds.
    EXPECT_EQ(idle->TransmitFramesPushing(true).errorCode, 0);
    EXPECT_TRUE(Eth().Calls().empty());
}

// What the library reads reaches a printer byte for byte in the
// components' traffic tests, in one check sequence mode; here both.
TEST_F(EthTransport, ReadFramesDropTheCheckSequenceOfType1Only)
{
    AddInterface();
    auto wrapper = Ready(Monitoring());  // 1000 ticks per microsecond
    struct Case {
        NXEEthFrameType type;
        std::uint32_t length;
    };
    for (Case c : {Case{NXETH_FRAME_TYPE_ETHERNET_FRAME, 64}, Case{NXETH_FRAME_TYPE_ETHERNET_FRAME_WITHOUT_FCS, 68}}) {
        SCOPED_TRACE(c.type);
        std::vector<std::uint8_t> block(32 + 68);
        NXSEthRawFrame* frame = reinterpret_cast<NXSEthRawFrame*>(block.data());
        frame->tHeader.tFrameType = c.type;
        frame->tHeader.ulRawDataLength = 68;
        frame->tHeader.ui64Timestamp = 1000ull * 2500000;  // 2.5 s
        for (std::uint32_t i = 0; i < 68; ++i) block[32 + i] = static_cast<std::uint8_t>(i);
        std::vector<std::uint8_t> out;
        VELDpcap_packet_header_t header = {};
        std::uint32_t position = 7;
        EXPECT_EQ(NxEthApiWrapper::CopyFrame(out, &header, frame, position, 1000000), 3500000);
        EXPECT_EQ(position, 107u);
        EXPECT_EQ(header.caplen, c.length);
        EXPECT_EQ(header.len, c.length);
        EXPECT_EQ(header.ts_seconds, 3u);
        EXPECT_EQ(header.ts_microseconds, 500000u);
        EXPECT_EQ(out, std::vector<std::uint8_t>(block.begin() + 32, block.begin() + 32 + c.length));
    }
}

TEST_F(EthTransport, TransmittedFramesMakeRoomForTheCheckSequence)
{
    AddInterface();
    auto wrapper = Ready(Monitoring());
    Packet packet = MakePacket(60, 0x10, 2000001);
    std::vector<std::uint8_t> block(sizeof(NXSEthRawFrameHeader) + 60 + 4, 0xEE);
    NXSEthRawFrame* raw = reinterpret_cast<NXSEthRawFrame*>(block.data());
    NxEthApiWrapper::CopyFrame(raw, packet.bytes.data(), &packet.header);
    EXPECT_EQ(raw->tHeader.tFrameType, NXETH_FRAME_TYPE_ETHERNET_FRAME);
    EXPECT_EQ(raw->tHeader.ulRawDataLength, 64u);
    EXPECT_EQ(raw->tHeader.ui64Timestamp, 2000001000u);
    EXPECT_EQ(std::vector<std::uint8_t>(block.begin() + 32, block.begin() + 92), packet.bytes);

    EXPECT_TRUE(CallsDuring([&] { EXPECT_EQ(wrapper->TransmitFrames(block.data(), 0).errorCode, 0); }).empty());
}

// ---------------------------------------------------------------------------
// Replay

TEST_F(EthTransport, FramesLeaveTheStageOnlyFromItsFillLevelOnAndStreamByteForByte)
{
    AddInterface();
    auto wrapper = Ready(Replay());
    std::vector<Packet> packets;
    for (std::uint32_t i = 0; i < 10; ++i) packets.push_back(MakePacket(60 + 77 * i, static_cast<std::uint8_t>(i), 1000 + i));
    for (std::uint32_t i = 0; i < 9; ++i)
        ASSERT_EQ(wrapper->CopyFrame2(packets[i].bytes.data(), &packets[i].header, kNeverStop).errorCode, 0);

    // Nine of ten held: the stage answers 4, which is no error, and nothing
    // is streamed.
    EXPECT_EQ(CallsDuring([&] { EXPECT_EQ(wrapper->TransmitFramesPushing(false).errorCode, 0); }),
              Calls{"NxDRPP_GetFrames"});

    ASSERT_EQ(wrapper->CopyFrame2(packets[9].bytes.data(), &packets[9].header, kNeverStop).errorCode, 0);
    EXPECT_EQ(wrapper->TransmitFramesPushing(false).errorCode, 0);
    std::vector<nxtest::EthRecord> records = nxtest::SplitRecords(Eth().Streamed());
    ASSERT_EQ(records.size(), 10u);
    for (std::size_t i = 0; i < records.size(); ++i) {
        EXPECT_EQ(records[i].payload, packets[i].bytes) << i;
        EXPECT_EQ(records[i].head.tHeader.ui64Timestamp, (1000 + i) * 1000) << i;
    }
    EXPECT_EQ(wrapper->GetTxBufferSize(), 0u);
    EXPECT_TRUE(wrapper->GetTransmitFramesAllowed());
}

TEST_F(EthTransport, AFullStageIsWaitedOutUntilItTakesTheFrameOrTheStopTestSaysStop)
{
    AddInterface();
    auto wrapper = Ready(Replay());
    Packet packet = MakePacket(100, 0, 0);
    int asked = 0;
    auto stopAfter = [&asked](int tries) { return [&asked, tries] { return ++asked > tries; }; };
    struct Case {
        std::vector<std::int32_t> answers;  // of the stage, then 0
        int stopAfterTries;
        std::size_t inserts;
        std::int32_t code;
        bool taken;
    };
    for (Case c : {Case{{}, 0, 0, 0, false},                 // told to stop at once: no try
                   Case{{6, 6}, 100, 3, 0, true},             // full twice, then taken
                   Case{{6, 6, 6, 6, 6, 6}, 4, 4, 0, false},  // still full when told to stop: dropped
                   Case{{6, 8}, 100, 2, 8, false}}) {         // another code ends the wait at once
        SCOPED_TRACE(testing::Message() << c.inserts << " tries");
        asked = 0;
        const std::size_t held = Stage().Held();
        const std::size_t inserts = Stage().CallsTo("NxDRPP_InsertFrames").size();
        Stage().ScriptResults("NxDRPP_InsertFrames", c.answers);
        NxBusError result = wrapper->CopyFrame2(packet.bytes.data(), &packet.header, stopAfter(c.stopAfterTries));
        EXPECT_EQ(result.errorCode, c.code);
        if (c.code != 0) {
            EXPECT_EQ(result.functionName, "NxDRPP_InsertFrames");
        }
        EXPECT_EQ(Stage().CallsTo("NxDRPP_InsertFrames").size() - inserts, c.inserts);
        EXPECT_EQ(Stage().Held() - held, c.taken ? 1u : 0u);
    }
}

TEST_F(EthTransport, APartialStreamKeepsTheRestAtTheFrontAndHoldsBackNewFrames)
{
    AddInterface();
    auto wrapper = Ready(Replay());
    for (std::uint8_t i = 0; i < 10; ++i) {
        Packet packet = MakePacket(64, i, i);  // records of 112 bytes
        wrapper->CopyFrame2(packet.bytes.data(), &packet.header, kNeverStop);
    }
    Eth().SetConsumption([](std::uint32_t offered) { return std::min<std::uint32_t>(offered, 300); });
    EXPECT_EQ(wrapper->TransmitFramesPushing(false).errorCode, 0);
    EXPECT_FALSE(wrapper->GetTransmitFramesAllowed());
    EXPECT_EQ(wrapper->GetTxBufferSize(), 1120u - 300u);
    // A failed stream keeps the data for the next push.
    Eth().SetResult("NXETH_ReplayStreamData", 3);
    EXPECT_EQ(wrapper->TransmitFramesPushing(false).functionName, "NXETH_ReplayStreamData");
    EXPECT_EQ(wrapper->GetTxBufferSize(), 820u);
    Eth().SetResult("NXETH_ReplayStreamData", 0);
    for (int push = 0; push < 3; ++push) wrapper->TransmitFramesPushing(false);
    EXPECT_TRUE(wrapper->GetTransmitFramesAllowed());
    std::vector<nxtest::EthRecord> records = nxtest::SplitRecords(Eth().Streamed());
    ASSERT_EQ(records.size(), 10u);
    for (std::uint8_t i = 0; i < 10; ++i) EXPECT_EQ(records[i].payload[0], i);
}

TEST_F(EthTransport, TheClosingRecordGoesThroughTheStageAndLeavesLast)
{
    AddInterface();
    auto wrapper = Ready(Replay());
    Packet packet = MakePacket(60, 1, 5);
    wrapper->CopyFrame2(packet.bytes.data(), &packet.header, kNeverStop);
    EXPECT_EQ(wrapper->TransmitFramesPushing(true).errorCode, 0);
    std::vector<nxtest::FakeCall> inserts = Eth().CallsTo("NxDRPP_InsertFrames");
    ASSERT_EQ(inserts.size(), 2u);
    EXPECT_EQ(inserts[0].args[2], 0u);  // a frame
    EXPECT_EQ(inserts[1].args[1], 56u);
    EXPECT_EQ(inserts[1].args[2], 1u);  // the end of the stream
    std::vector<nxtest::EthRecord> records = nxtest::SplitRecords(Eth().Streamed());
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[1].head.tHeader.reserved1, 0x4E584501u);
    EXPECT_EQ(records[1].head.tHeader.ui64Timestamp, 0u);
    EXPECT_EQ(records[1].head.tMsgHeader.ulRawDataLength, 0u);

    Stage().SetResult("NxDRPP_InsertFrames", NXDRPP_BUFFER_FULL);
    EXPECT_EQ(wrapper->TransmitFramesPushing(true).functionName, "NxDRPP_InsertFrames");
}

TEST_F(EthTransport, FailuresOfTheStageOnTheWayOut)
{
    AddInterface();
    auto wrapper = Ready(Replay());
    Stage().SetResult("NxDRPP_GetFrames", NXDRPP_CORRUPTED_DATA);
    EXPECT_EQ(wrapper->TransmitFramesPushing(false), NxBusError(NXDRPP_CORRUPTED_DATA, "NxDRPP_GetFrames", kError));
    Stage().SetGetFramesThrows(true);
    EXPECT_EQ(Thrown([&] { wrapper->TransmitFramesPushing(false); }), "Unhandled exception in NxDRPP_GetFrames");
    Stage().SetGetFramesThrows(false);

    Eth().SetResult("NXETH_ReplayInitHeader", 2);
    Packet packet = MakePacket(60, 1, 5);
    EXPECT_EQ(wrapper->CopyFrame2(packet.bytes.data(), &packet.header, kNeverStop),
              NxBusError(2, "NXETH_ReplayInitHeader", kError));
}
