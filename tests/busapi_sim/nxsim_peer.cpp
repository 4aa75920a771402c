// A second process on the simulated bus, driven by the process tests:
//   nxsim_peer receive <channel> <count> <timeout_ms>  prints one line per frame
//   nxsim_peer hold <channel>                           claims the channel and waits
//   nxsim_peer hold-lock <bus>                          holds the bus's lock and waits
// Each prints "ready" once it is in place; the environment selects the
// namespace and configuration, as for any user of the library.
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "NXBusApiCan.h"
#include "simulator.h"

namespace {

NXTCanHandle Claim(const char* id)
{
    NXSCanChannelsSearchAttribute attribute{};
    attribute.tSearchAttributeType = NXCAN_SEARCH_ARRTIBUTE_TYPE_IP_V4_ADDRESS;
    std::strcpy(attribute.szSearchAttribute, "127.0.0.1");
    uint32_t count = 0;
    NXCAN_GetAvailableChannelsCount(&count, 1, &attribute);
    std::vector<NXSCanChannelInfo> channels(count);
    NXCAN_GetAvailableChannels(&count, channels.data(), 1, &attribute);
    for (auto& info : channels) {
        if (std::strcmp(info.szChannelIdentifier, id) != 0)
            continue;
        NXTCanHandle handle = NXCAN_INVALID_HANDLE;
        const NXTCanError rc = NXCAN_RegisterChannel(info.szVendorName, info.szInterfaceName,
                                                     info.szInterfaceSerialNumber, info.szChannelIdentifier, &handle);
        if (rc != NXCAN_SUCCESS) {
            std::fprintf(stderr, "register %s: %d\n", id, rc);
            std::exit(2);
        }
        return handle;
    }
    std::fprintf(stderr, "no channel %s\n", id);
    std::exit(2);
}

void Ready(const char* word)
{
    std::printf("%s\n", word);
    std::fflush(stdout);
}

[[noreturn]] void WaitForever()
{
    for (;;)
        pause();
}

int Receive(const char* id, size_t wanted, int timeoutMs)
{
    const NXTCanHandle h = Claim(id);
    bool fd = false;
    NXCAN_InitChannel(h, NXCAN_IDENTIFIER_TYPE_STD_XTD, 32768, true, &fd);
    NXCAN_ActivateChannel(h);
    Ready("ready");
    std::vector<NXSCanMessage> buffer(256);
    size_t got = 0;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (got < wanted && std::chrono::steady_clock::now() < deadline) {
        uint32_t n = static_cast<uint32_t>(buffer.size());
        if (NXCAN_ReadReceiveQueue(h, &n, buffer.data()) != NXCAN_SUCCESS)
            return 4;
        for (uint32_t i = 0; i < n; ++i) {
            const NXSCanMessage& m = buffer[i];
            std::printf("%x %u %u %x", m.ulCanIdentifier, m.tCanIdentifierType, m.usDLC, m.ulFlags);
            for (int b = 0; b < 8; ++b)
                std::printf(" %02x", m.ucData[b]);
            std::printf("\n");
        }
        std::fflush(stdout);
        got += n;
        if (n == 0)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    NXCAN_UnregisterChannel(h);
    return got >= wanted ? 0 : 3;
}

}  // namespace

int main(int argc, char** argv)
{
    const std::string command = argc > 1 ? argv[1] : "";
    if (command == "receive" && argc == 5)
        return Receive(argv[2], std::strtoul(argv[3], nullptr, 10), std::atoi(argv[4]));
    if (command == "hold" && argc == 3) {
        Claim(argv[2]);
        Ready("ready");
        WaitForever();
    }
    if (command == "hold-lock" && argc == 3) {
        nxsim::Simulator& sim = nxsim::Simulator::Instance();
        nxsim::Bus* bus = sim.Ready() == NXCAN_SUCCESS ? sim.FindBus(argv[2]) : nullptr;
        std::string error;
        if (bus == nullptr || bus->EnsureAttached(&error) != NXCAN_SUCCESS) {
            std::fprintf(stderr, "bus %s: %s\n", argv[2], error.c_str());
            return 2;
        }
        bus->SegmentForTests()->Lock();
        Ready("ready");
        WaitForever();
    }
    std::fprintf(stderr, "usage: nxsim_peer receive <channel> <count> <timeout_ms> | hold <channel> | hold-lock <bus>\n");
    return 1;
}
