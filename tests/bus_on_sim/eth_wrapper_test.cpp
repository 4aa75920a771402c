// The package's Ethernet wrapper against the open Ethernet library at its
// fixed path, on the veth pair of tools/with-sim-bus, with the interfaces of
// partial_stream.conf: NVX-ETH-1 on one end; NVX-ETH-2 (frames with their
// check sequence), NVX-ETH-2-RAW (without) and ORV-ETH-2-SMALL (at
// 192.0.2.10) on the other. A receive ring's overrun is the library's:
// busapi_eth/traffic_test.
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "ChildProcess.h"
#include "NxEthApiWrapper.h"
#include "SimBusTest.h"

namespace nxbus_on_sim {
namespace {

using Bytes = std::vector<std::uint8_t>;

// A frame as the wrapper's reader gives it, with what its raw header said.
struct Received {
    std::uint32_t type;
    std::uint32_t flags;
    std::uint32_t rawLength;
    VELDTimestamp time;  // hardware microseconds
    Bytes bytes;
};

// A frame of `length` bytes to the other end, of the local experimental
// type, carrying `sequence` after its header and a pattern after that.
Bytes TestFrame(std::size_t length, std::uint32_t sequence)
{
    Bytes frame(length);
    const std::uint8_t head[14] = {0x02, 0x4e, 0x58, 0x45, 0x00, 0x02, 0x02, 0x4e, 0x58, 0x45, 0x00, 0x01, 0x88, 0xb5};
    std::memcpy(frame.data(), head, sizeof head);
    std::memcpy(frame.data() + 14, &sequence, 4);
    for (std::size_t i = 18; i < length; ++i) frame[i] = static_cast<std::uint8_t>(i * 7 + sequence);
    return frame;
}

class EthWrapperTest : public SimBusTest {
protected:
    static std::unique_ptr<NxEthApiWrapper> OpenInterface(const std::string& id, const char* ip = kAddress,
                                                          bool replay = false)
    {
        NxEthApiWrapperSettings settings(ip, id, false, replay);
        if (replay) settings.SetProtocolType(NXDRPP_GENERIC);
        auto wrapper = std::make_unique<NxEthApiWrapper>(settings);
        bool highSpeed = false;
        const NxBusError result = wrapper->Initialize(&highSpeed);
        if (result.errorCode == 0) return wrapper;
        ADD_FAILURE() << id << " did not come up: " << wrapper->GetErrorMessage(result);
        return nullptr;
    }

    // The frames as one block, each with room for its check sequence, sent
    // in one call.
    static void Transmit(NxEthApiWrapper& wrapper, const std::vector<Bytes>& frames)
    {
        std::vector<std::uint8_t> block;
        for (const Bytes& f : frames) {
            const std::size_t at = block.size();
            block.resize(at + sizeof(NXSEthRawFrameHeader) + f.size() + NXETH_FCS_SIZE);
            VELDpcap_packet_header_t header{};
            header.caplen = header.len = static_cast<std::uint32_t>(f.size());
            NxEthApiWrapper::CopyFrame(reinterpret_cast<NXSEthRawFrame*>(block.data() + at), f.data(), &header);
        }
        const NxBusError result = wrapper.TransmitFrames(block.data(), static_cast<std::uint32_t>(frames.size()));
        ASSERT_EQ(result.errorCode, 0) << wrapper.GetErrorMessage(result);
    }

    // Reads blocks of the interface's buffer size until `count` frames came
    // or the time is up.
    static std::vector<Received> Receive(NxEthApiWrapper& wrapper, std::size_t count,
                                         std::chrono::milliseconds timeout = std::chrono::seconds(5))
    {
        std::uint32_t size = 0;
        EXPECT_EQ(wrapper.GetInterfaceBufferSize(&size).errorCode, 0);
        std::vector<std::uint8_t> buffer(size);
        std::vector<Received> got;
        const auto deadline = std::chrono::steady_clock::now() + timeout;
        while (got.size() < count && std::chrono::steady_clock::now() < deadline) {
            std::uint32_t frames = 0;
            const NxBusError result = wrapper.ReadFrames(size, buffer.data(), &frames);
            EXPECT_EQ(result.errorCode, 0) << wrapper.GetErrorMessage(result);
            std::uint32_t position = 0;
            for (std::uint32_t i = 0; i < frames; ++i) {
                NXSEthRawFrameHeader head;
                std::memcpy(&head, buffer.data() + position, sizeof head);
                Received r{static_cast<std::uint32_t>(head.tFrameType), head.ulFlags, head.ulRawDataLength, 0, {}};
                VELDpcap_packet_header_t header{};
                r.time = NxEthApiWrapper::CopyFrame(
                    r.bytes, &header, reinterpret_cast<const NXSEthRawFrame*>(buffer.data() + position), position, 0);
                got.push_back(std::move(r));
            }
            if (frames == 0) std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
        return got;
    }

    static std::uint64_t Now(NxEthApiWrapper& wrapper)
    {
        std::uint64_t microseconds = 0;
        EXPECT_EQ(wrapper.GetHardwareTime(&microseconds).errorCode, 0);
        return microseconds;
    }

    static std::vector<std::string> Identifiers(const char* ip, bool norvexOnly)
    {
        std::vector<std::string> ids;
        for (const NXSEthInterfaceInfo& info : NxEthApiWrapper::RetrieveAvailableChannelsVector(ip, norvexOnly))
            ids.push_back(NxEthApiWrapper::GetChannelId(info).Beginning());
        return ids;
    }
};

TEST_F(EthWrapperTest, DiscoveryFindsTheInterfacesAtAnAddressOnly)
{
    using Ids = std::vector<std::string>;
    EXPECT_EQ(Identifiers(kAddress, false), (Ids{"NVX-ETH-1", "NVX-ETH-2", "NVX-ETH-2-RAW"}));
    EXPECT_EQ(Identifiers("192.0.2.10", false), Ids{"ORV-ETH-2-SMALL"});
    // A synchronised replay is offered one vendor's hardware only.
    EXPECT_EQ(Identifiers("192.0.2.10", true), Ids{});
    EXPECT_EQ(Identifiers("10.9.9.9", false), Ids{});
}

TEST_F(EthWrapperTest, AnInterfaceAnotherProcessHoldsIsRefused)
{
    nxtest::ChildProcess holder(NXBUS_WRAPPER_PEER, {"hold-interface", "NVX-ETH-1"});
    ASSERT_EQ(holder.Line(), "ready");
    NxEthApiWrapper refused(NxEthApiWrapperSettings(kAddress, "NVX-ETH-1", false, false));
    bool highSpeed = false;
    const std::string text = refused.GetErrorMessage(refused.Initialize(&highSpeed));
    EXPECT_EQ(text.rfind("NXETH_RegisterInterface: ", 0), 0u) << text;
    EXPECT_NE(text.find("process " + std::to_string(holder.Pid())), std::string::npos) << "names the holder: " << text;

    // Once the holder has let go, the interface can be had.
    holder.CloseInput();
    EXPECT_TRUE(holder.ExitedCleanly());
    EXPECT_TRUE(OpenInterface("NVX-ETH-1"));
}

TEST_F(EthWrapperTest, EveryLengthArrivesByteForByteWithOrWithoutItsCheckSequence)
{
    // Both receiving interfaces sit on one device: each gets every frame,
    // one with its check sequence (type 1), the other without (type 3).
    auto tx = OpenInterface("NVX-ETH-1");
    auto withFcs = OpenInterface("NVX-ETH-2");
    auto raw = OpenInterface("NVX-ETH-2-RAW");
    ASSERT_TRUE(tx && withFcs && raw);
    std::vector<Bytes> sent;
    for (std::size_t length = 60; length <= 1514; ++length)
        sent.push_back(TestFrame(length, static_cast<std::uint32_t>(sent.size())));
    const std::uint64_t before = Now(*tx);
    Transmit(*tx, sent);

    // The kernel stamps in another clock, which the library converts: a
    // frame's time may stray that little from the window of its sending.
    const long long kTolerance = 2000;
    struct Side {
        NxEthApiWrapper* wrapper;
        std::uint32_t type;
        std::uint32_t checkSequence;
    };
    for (const Side& side : {Side{withFcs.get(), NXETH_FRAME_TYPE_ETHERNET_FRAME, NXETH_FCS_SIZE},
                             Side{raw.get(), NXETH_FRAME_TYPE_ETHERNET_FRAME_WITHOUT_FCS, 0}}) {
        SCOPED_TRACE("frame type " + std::to_string(side.type));
        const std::vector<Received> got = Receive(*side.wrapper, sent.size());
        const std::uint64_t after = Now(*side.wrapper);
        ASSERT_EQ(got.size(), sent.size());
        for (std::size_t k = 0; k < sent.size(); ++k) {
            ASSERT_EQ(got[k].bytes, sent[k]) << "frame " << k;
            EXPECT_EQ(got[k].type, side.type);
            EXPECT_EQ(got[k].rawLength, sent[k].size() + side.checkSequence);
            EXPECT_EQ(got[k].flags, 0u);
            EXPECT_GE(got[k].time, static_cast<long long>(before) - kTolerance) << k;
            EXPECT_LE(got[k].time, static_cast<long long>(after) + kTolerance) << k;
        }
    }
}

TEST_F(EthWrapperTest, AReplayStreamIsEmittedOnScheduleWithItsStates)
{
    auto tx = OpenInterface("NVX-ETH-1", kAddress, true);
    auto rx = OpenInterface("NVX-ETH-2");
    ASSERT_TRUE(tx && rx);
    const std::uint64_t kLogStart = 1000000;
    const std::uint64_t kPeriod = 5000;
    const int kFrames = 30;
    const std::uint64_t start = Now(*tx) + 300000;
    ASSERT_EQ(tx->SetReplayStartTime(start, kLogStart).errorCode, 0);

    for (int k = 0; k < kFrames; ++k) {
        const Bytes frame = TestFrame(100 + k, k);
        VELDpcap_packet_header_t header{};
        header.caplen = header.len = static_cast<std::uint32_t>(frame.size());
        const std::uint64_t t = kLogStart + k * kPeriod;
        header.ts_seconds = t / 1000000;
        header.ts_microseconds = t % 1000000;
        ASSERT_EQ(tx->CopyFrame2(frame.data(), &header, [] { return false; }).errorCode, 0);
    }
    // The stage holds back the last records until the closing one comes;
    // those streamed wait for the start.
    ASSERT_EQ(tx->TransmitFramesPushing(false).errorCode, 0);
    NxBusReplayStateInfo info{};
    ASSERT_EQ(tx->GetReplayStateInfo(&info).errorCode, 0);
    EXPECT_EQ(info.tReplayState, NXETH_REPLAY_STATE_SCHEDULED);
    EXPECT_EQ(info.ui64SentFrames, 0u);
    ASSERT_EQ(tx->TransmitFramesPushing(true).errorCode, 0);

    const std::vector<Received> got = Receive(*rx, kFrames);
    ASSERT_EQ(got.size(), static_cast<std::size_t>(kFrames));
    // Generous: the machine is shared (bench_busapi_eth measures the spread).
    const double kTolerance = 20000;
    for (int k = 0; k < kFrames; ++k) {
        EXPECT_EQ(got[k].bytes, TestFrame(100 + k, k)) << k;
        EXPECT_NEAR(static_cast<double>(got[k].time), static_cast<double>(start + k * kPeriod), kTolerance) << k;
    }
    // The closing record leaves after the last frame.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (tx->GetReplayStateInfo(&info).errorCode == 0 && info.tReplayState != NXETH_REPLAY_STATE_END &&
           std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    EXPECT_EQ(info.tReplayState, NXETH_REPLAY_STATE_END);
    EXPECT_EQ(info.ui64SentFrames, static_cast<std::uint64_t>(kFrames));
    EXPECT_EQ(info.ui64Dropped, 0u);
}

}  // namespace
}  // namespace nxbus_on_sim
