#include "EthComponentTest.h"

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <thread>

#include "NxEthApiWrapper.h"

namespace bus_components {

std::uint32_t CounterOf(const std::vector<std::uint8_t>& frame)
{
    const std::size_t end = frame.size();
    if (end < 4) return 0xFFFFFFFFu;
    return frame[end - 4] | frame[end - 3] << 8 | frame[end - 2] << 16 |
           static_cast<std::uint32_t>(frame[end - 1]) << 24;
}

std::string EthComponentTest::MakeMonitor(int tsBehavior, bool vectorize)
{
    MakeOnInterface("NxEthMonitoring", "rx", "NVX-ETH-2");
    SetTsBehaviour("rx", tsBehavior);
    Set("rx.vectorize_frames", vectorize ? "true" : "false");
    return MakeEthPrinter("got", "rx.oEth");
}

std::string EthComponentTest::MakeSender(const std::string& replayMode, int count, int from, int to, int perElement)
{
    Make("EthGenerator", "gen");
    Set("gen.frame_size", std::to_string(from));
    Set("gen.frame_size_max", std::to_string(to));
    Set("gen.count", std::to_string(count));
    Set("gen.frames_per_element", std::to_string(perElement));
    Set("gen.rate", "0");
    MakeOnInterface("NxEthInject", "tx", "NVX-ETH-1", replayMode);
    Connect("gen.oEth", "tx.iEth");
    return MakeEthPrinter("sent", "gen.oEth");
}

ScopedLinkMtu::ScopedLinkMtu(int mtu)
{
    const std::string value = std::to_string(mtu);
    for (const char* device : {"nvxeth1", "nvxeth2"})
        EXPECT_EQ(std::system(("ip link set dev " + std::string(device) + " mtu " + value).c_str()), 0) << device;
}

ScopedLinkMtu::~ScopedLinkMtu()
{
    for (const char* device : {"nvxeth1", "nvxeth2"})
        std::system(("ip link set dev " + std::string(device) + " mtu 1500").c_str());
}

DirectSender::DirectSender(const std::string& interface)
    : m_wrapper(new NxEthApiWrapper(NxEthApiWrapperSettings("127.0.0.1", interface, false, false)))
{
    bool highSpeed = false;
    const NxBusError result = m_wrapper->Initialize(&highSpeed);
    EXPECT_EQ(result.errorCode, 0) << m_wrapper->GetErrorMessage(result);
}

DirectSender::~DirectSender() = default;

void DirectSender::Send(int frames)
{
    // 60 bytes to the other end, of the local experimental type, ending with
    // the counter; 4 bytes of room for the check sequence after each.
    const std::size_t length = 60;
    const std::size_t raw = sizeof(NXSEthRawFrameHeader) + length + NXETH_FCS_SIZE;
    std::vector<std::uint8_t> block(raw * frames, 0);
    for (int i = 0; i < frames; ++i) {
        std::uint8_t frame[length] = {0x02, 0x4e, 0x58, 0x45, 0x00, 0x02, 0x02, 0x4e, 0x58, 0x45, 0x00, 0x01, 0x88, 0xb5};
        const std::uint32_t counter = m_next++;
        std::memcpy(frame + length - 4, &counter, 4);
        VELDpcap_packet_header_t header{};
        header.caplen = header.len = length;
        NxEthApiWrapper::CopyFrame(reinterpret_cast<NXSEthRawFrame*>(block.data() + i * raw), frame, &header);
    }
    const NxBusError result = m_wrapper->TransmitFrames(block.data(), static_cast<std::uint32_t>(frames));
    EXPECT_EQ(result.errorCode, 0) << m_wrapper->GetErrorMessage(result);
}

}  // namespace bus_components
