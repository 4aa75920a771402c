// The package's Ethernet wrapper on the open Ethernet library at its fixed
// path, on the veth pair of tools/with-sim-bus, with the interfaces of
// partial_stream.conf: NVX-ETH-1 on one end; NVX-ETH-2 (frames with their
// check sequence) and NVX-ETH-2-RAW (without) on the other. What the
// components show on the same link: bus_components/eth_*.
#include <chrono>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "NxEthApiWrapper.h"
#include "SimBusTest.h"

namespace nxbus_on_sim {
namespace {

using Bytes = std::vector<std::uint8_t>;

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

std::unique_ptr<NxEthApiWrapper> OpenInterface(const std::string& id)
{
    auto wrapper = std::make_unique<NxEthApiWrapper>(NxEthApiWrapperSettings(kAddress, id, false, false));
    bool highSpeed = false;
    const NxBusError result = wrapper->Initialize(&highSpeed);
    if (result.errorCode == 0) return wrapper;
    ADD_FAILURE() << id << " did not come up: " << wrapper->GetErrorMessage(result);
    return nullptr;
}

using EthOnSim = SimBusTest;

// The wrapper's raw frame records and the library's agree byte for byte,
// with the check sequence (type 1, which the wrapper drops) and without
// (type 3).
TEST_F(EthOnSim, EveryLengthArrivesByteForByteWithOrWithoutItsCheckSequence)
{
    auto tx = OpenInterface("NVX-ETH-1");
    auto withFcs = OpenInterface("NVX-ETH-2");
    auto raw = OpenInterface("NVX-ETH-2-RAW");
    ASSERT_TRUE(tx && withFcs && raw);
    std::vector<Bytes> sent;
    Bytes block;
    for (std::size_t length = 60; length <= 1514; ++length) {
        sent.push_back(TestFrame(length, static_cast<std::uint32_t>(sent.size())));
        const std::size_t at = block.size();
        block.resize(at + sizeof(NXSEthRawFrameHeader) + length + NXETH_FCS_SIZE);
        VELDpcap_packet_header_t header{};
        header.caplen = header.len = static_cast<std::uint32_t>(length);
        NxEthApiWrapper::CopyFrame(reinterpret_cast<NXSEthRawFrame*>(block.data() + at), sent.back().data(), &header);
    }
    auto now = [](NxEthApiWrapper& wrapper) {
        std::uint64_t microseconds = 0;
        EXPECT_EQ(wrapper.GetHardwareTime(&microseconds).errorCode, 0);
        return static_cast<long long>(microseconds);
    };
    const long long before = now(*tx);
    NxBusError result = tx->TransmitFrames(block.data(), static_cast<std::uint32_t>(sent.size()));
    ASSERT_EQ(result.errorCode, 0) << tx->GetErrorMessage(result);

    struct Side {
        NxEthApiWrapper* wrapper;
        std::uint32_t type;
        std::uint32_t checkSequence;
    };
    for (const Side& side : {Side{withFcs.get(), NXETH_FRAME_TYPE_ETHERNET_FRAME, NXETH_FCS_SIZE},
                             Side{raw.get(), NXETH_FRAME_TYPE_ETHERNET_FRAME_WITHOUT_FCS, 0}}) {
        SCOPED_TRACE("frame type " + std::to_string(side.type));
        std::uint32_t size = 0;
        ASSERT_EQ(side.wrapper->GetInterfaceBufferSize(&size).errorCode, 0);
        Bytes buffer(size);
        std::size_t k = 0;
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
        while (k < sent.size() && std::chrono::steady_clock::now() < deadline) {
            std::uint32_t frames = 0;
            result = side.wrapper->ReadFrames(size, buffer.data(), &frames);
            ASSERT_EQ(result.errorCode, 0) << side.wrapper->GetErrorMessage(result);
            std::uint32_t position = 0;
            for (std::uint32_t i = 0; i < frames; ++i, ++k) {
                ASSERT_LT(k, sent.size()) << "more frames than were sent";
                NXSEthRawFrameHeader head;
                std::memcpy(&head, buffer.data() + position, sizeof head);
                EXPECT_EQ(head.tFrameType, side.type);
                EXPECT_EQ(head.ulRawDataLength, sent[k].size() + side.checkSequence);
                EXPECT_EQ(head.ulFlags, 0u);
                Bytes bytes;
                VELDpcap_packet_header_t header{};
                const long long time = NxEthApiWrapper::CopyFrame(
                    bytes, &header, reinterpret_cast<const NXSEthRawFrame*>(buffer.data() + position), position, 0);
                ASSERT_EQ(bytes, sent[k]) << "frame " << k;
                // The kernel stamps in another clock, which the library
                // converts: a frame may stray that little from its window.
                EXPECT_GE(time, before - 2000) << k;
                EXPECT_LE(time, now(*side.wrapper) + 2000) << k;
            }
            if (frames == 0) std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
        EXPECT_EQ(k, sent.size());
    }
}

}  // namespace
}  // namespace nxbus_on_sim
