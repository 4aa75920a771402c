// Frames through the veth pair: byte for byte in both check-sequence modes,
// on the shared clock, through reads too small, and past a full ring.
#include <thread>

#include "eth_test_support.h"

namespace eth_test {
namespace {

NXTEthError Send(NXTEthHandle handle, const std::vector<Bytes>& frames, uint32_t type, uint32_t* sent = nullptr)
{
    Bytes block = RawBlock(frames, type);
    uint32_t ignored = 0;
    return Lib().TransmitFrames(handle, static_cast<uint32_t>(frames.size()), block.data(),
                                sent != nullptr ? sent : &ignored);
}

TEST(EthTraffic, FramesArriveByteForByteInBothCheckSequenceModesOnTheSharedClock)
{
    const NXTEthHandle tx = Open("NVX-ETH-1");
    const NXTEthHandle withFcs = Open("NVX-ETH-2");
    const NXTEthHandle withoutFcs = Open("NVX-ETH-2-RAW");
    const std::vector<Bytes> frames = Frames({60, 61, 64, 100, 511, 1000, 1513, 1514});
    const uint64_t perMs = TicksPerSecond(tx) / 1000;
    // The kernel stamps a frame on a veth inside the sending call; the stated
    // tolerance covers the conversion from its clock and a busy machine.
    const uint64_t tolerance = 2 * perMs;
    for (uint32_t sentType : {NXETH_FRAME_TYPE_ETHERNET_FRAME, NXETH_FRAME_TYPE_ETHERNET_FRAME_WITHOUT_FCS}) {
        const uint64_t before = Now(tx);
        uint32_t sent = 0;
        ASSERT_EQ(Send(tx, frames, sentType, &sent), NXETH_SUCCESS);
        EXPECT_EQ(sent, frames.size());
        const uint64_t after = Now(tx);
        for (NXTEthHandle rx : {withFcs, withoutFcs}) {
            const std::vector<Frame> got = Receive(rx, frames.size());
            ASSERT_EQ(got.size(), frames.size()) << "sent as type " << sentType;
            for (size_t i = 0; i < frames.size(); ++i) {
                SCOPED_TRACE(testing::Message() << "type " << sentType << ", frame " << i);
                if (rx == withFcs) {
                    EXPECT_EQ(got[i].type, NXETH_FRAME_TYPE_ETHERNET_FRAME);
                    EXPECT_EQ(got[i].data, WithCheckSequence(frames[i]));
                } else {
                    EXPECT_EQ(got[i].type, NXETH_FRAME_TYPE_ETHERNET_FRAME_WITHOUT_FCS);
                    EXPECT_EQ(got[i].data, frames[i]);
                }
                EXPECT_EQ(got[i].flags, 0u);
                EXPECT_GE(got[i].ticks + tolerance, before);
                EXPECT_LE(got[i].ticks, after + tolerance);
            }
        }
    }
    uint8_t buffer[4096];
    uint32_t n = 0;
    EXPECT_EQ(Lib().ReadFrames(tx, sizeof buffer, buffer, &n), NXETH_SUCCESS);
    EXPECT_EQ(n, 0u) << "an interface does not receive what it sent";

    const struct {
        std::vector<Bytes> frames;
        uint32_t type;
        NXTEthError rc;
    } refused[] = {
        {{TestFrame(13, 0)}, NXETH_FRAME_TYPE_ETHERNET_FRAME_WITHOUT_FCS, NXETH_ERR_INVALID_FRAME},
        {{TestFrame(1519, 0)}, NXETH_FRAME_TYPE_ETHERNET_FRAME_WITHOUT_FCS, NXETH_ERR_INVALID_FRAME},
        {{TestFrame(60, 0), TestFrame(60, 1)}, NXETH_FRAME_TYPE_LOOPBACK_FRAME, NXETH_ERR_INVALID_FRAME},
    };
    for (const auto& r : refused) EXPECT_EQ(Send(tx, r.frames, r.type), r.rc);
    // The count is of frames: none sends nothing.
    Bytes one = RawBlock({TestFrame(60, 0)}, NXETH_FRAME_TYPE_ETHERNET_FRAME);
    EXPECT_EQ(Lib().TransmitFrames(tx, 0, one.data(), &n), NXETH_SUCCESS);
    EXPECT_EQ(n, 0u);
    EXPECT_TRUE(Receive(withFcs, 1, std::chrono::milliseconds(50)).empty()) << "nothing of a refused block went out";
    Close({tx, withFcs, withoutFcs});
}

TEST(EthTraffic, AReadTooSmallTakesWholeFramesFlagsTheRestAndLosesNothing)
{
    const NXTEthHandle tx = Open("NVX-ETH-1");
    const NXTEthHandle rx = Open("NVX-ETH-2");
    const std::vector<Bytes> frames = Frames(std::vector<size_t>(50, 1000));
    ASSERT_EQ(Send(tx, frames, NXETH_FRAME_TYPE_ETHERNET_FRAME), NXETH_SUCCESS);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));  // the ring hands its blocks over

    Bytes small(31 + 1000 + 4);
    uint32_t n = 9;
    EXPECT_EQ(Lib().ReadFrames(rx, static_cast<uint32_t>(small.size()), small.data(), &n), NXETH_ERR_BUFFER_TOO_SMALL);
    EXPECT_EQ(n, 0u);
    const uint32_t room = 7 * (32 + 1004) + 100;
    std::vector<Frame> got;
    Bytes buffer(room);
    for (int reads = 0; got.size() < frames.size() && reads < 100; ++reads) {
        ASSERT_EQ(Lib().ReadFrames(rx, room, buffer.data(), &n), NXETH_SUCCESS);
        ASSERT_LE(n, 7u);
        const std::vector<Frame> part = ParseBlock(buffer.data(), n);
        for (size_t i = 0; i < part.size(); ++i) {
            const bool last = i + 1 == part.size();
            const bool more = got.size() + part.size() < frames.size();
            EXPECT_EQ((part[i].flags & NXETH_FLAG_READ_PERIOD_TOO_LONG) != 0, last && more)
                << "frame " << got.size() + i;
        }
        got.insert(got.end(), part.begin(), part.end());
        if (n == 0) std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    ASSERT_EQ(got.size(), frames.size());
    for (size_t i = 0; i < frames.size(); ++i) EXPECT_EQ(Payload(got[i]), frames[i]) << i;
    Close({tx, rx});
}

TEST(EthTraffic, FramesTheRingHadNoRoomForAreFlaggedOnTheNextFrame)
{
    const NXTEthHandle tx = Open("NVX-ETH-1");
    const NXTEthHandle rx = Open("NVX-ETH-2-SMALL");  // a ring of 64 KiB
    const std::vector<Bytes> frames = Frames(std::vector<size_t>(400, 1514));
    ASSERT_EQ(Send(tx, frames, NXETH_FRAME_TYPE_ETHERNET_FRAME_WITHOUT_FCS), NXETH_SUCCESS);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    const std::vector<Frame> got = Receive(rx, frames.size(), std::chrono::milliseconds(300));
    ASSERT_FALSE(got.empty());
    ASSERT_LT(got.size(), frames.size());
    size_t flagged = 0;
    for (size_t i = 0; i < got.size(); ++i) {
        if (i > 0) {
            EXPECT_GT(SequenceOf(got[i].data), SequenceOf(got[i - 1].data)) << "in order";
        }
        flagged += (got[i].flags & NXETH_FLAG_RX_BUFFER_OVERFLOW) != 0 ? 1 : 0;
    }
    EXPECT_EQ(flagged, 1u) << "one read found the drops";
    // The drops are told once.
    ASSERT_EQ(Send(tx, Frames({100}), NXETH_FRAME_TYPE_ETHERNET_FRAME), NXETH_SUCCESS);
    const std::vector<Frame> next = Receive(rx, 1);
    ASSERT_EQ(next.size(), 1u);
    EXPECT_EQ(next[0].flags, 0u);
    Close({tx, rx});
}

TEST(EthTraffic, AFilterKeepsWhatItSelects)
{
    const NXTEthHandle tx = Open("NVX-ETH-1");
    const NXTEthHandle rx = Open("NVX-ETH-2");
    char even[] = "ether[17] & 1 = 0";
    ASSERT_EQ(Lib().SetFilter(rx, even), NXETH_SUCCESS) << ErrorText(NXETH_ERR_INVALID_FILTER);
    ASSERT_EQ(Send(tx, Frames(std::vector<size_t>(6, 80)), NXETH_FRAME_TYPE_ETHERNET_FRAME), NXETH_SUCCESS);
    const std::vector<Frame> got = Receive(rx, 3);
    ASSERT_EQ(got.size(), 3u);
    for (size_t i = 0; i < got.size(); ++i) EXPECT_EQ(SequenceOf(got[i].data), 2 * i);
    char wrong[] = "ether nonsense";
    EXPECT_EQ(Lib().SetFilter(rx, wrong), NXETH_ERR_INVALID_FILTER);
    EXPECT_NE(ErrorText(NXETH_ERR_INVALID_FILTER).find("nonsense"), std::string::npos);
    Close({tx, rx});
}

TEST(EthTraffic, ALineRateHoldsTheDeviceToItsPace)
{
    const char* make =
        "ip link add nvxrate1 type veth peer name nvxrate2 2>/dev/null && "
        "echo 1 >/proc/sys/net/ipv6/conf/nvxrate1/disable_ipv6 && echo 1 >/proc/sys/net/ipv6/conf/nvxrate2/disable_ipv6 "
        "&& ip link set nvxrate1 up && ip link set nvxrate2 up";
    if (std::system(make) != 0) GTEST_SKIP() << "no veth pair of its own here";
    const NXTEthHandle tx = Open("NVX-RATE-1");
    const NXTEthHandle rx = Open("NVX-RATE-2");
    uint32_t size = 0;
    EXPECT_EQ(Lib().GetInterfaceBufferSize(rx, &size), NXETH_SUCCESS);
    EXPECT_EQ(size, 71520u) << "5 ms of the smallest frames at 100 Mbit/s";
    // The sender waits for the line while the receiver reads.
    const std::vector<Bytes> frames = Frames(std::vector<size_t>(1000, 1514));
    NXTEthError sent = NXETH_ERR_GENERIC;
    std::thread sender([&] { sent = Send(tx, frames, NXETH_FRAME_TYPE_ETHERNET_FRAME); });
    const std::vector<Frame> got = Receive(rx, frames.size());
    sender.join();
    ASSERT_EQ(sent, NXETH_SUCCESS) << ErrorText(sent);
    ASSERT_EQ(got.size(), frames.size()) << "the device's queue waits, it does not drop";
    for (size_t i = 0; i < got.size(); ++i) EXPECT_EQ(got[i].data, frames[i]) << i;
    // Never faster than the line: 1538 bytes on the wire a frame, a burst of
    // a millisecond at the start.
    const double seconds = static_cast<double>(got.back().ticks - got.front().ticks) / TicksPerSecond(rx);
    EXPECT_GT(seconds, (frames.size() - 1) * 1538 * 8 / 100e6 - 0.002);
    Close({tx, rx});
    std::system("ip link del nvxrate1");
}

}  // namespace
}  // namespace eth_test
