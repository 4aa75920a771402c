// A second process on the simulated bus and link that uses the package's
// wrappers, for the tests that need one:
//   wrapper_peer transmit <channel>        sends the mixed CAN traffic, prints "sent <n>"
//   wrapper_peer hold <channel>            claims the CAN channel, prints "ready", or
//                                          "refused: <text>" and ends
//   wrapper_peer hold-interface <id>       the same for an Ethernet interface
// Each keeps what it claimed until its standard input ends: a channel that
// leaves the bus withdraws what it has not yet sent.
// Errors go to standard error, with a non-zero exit status.
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <string>

#include "Engine.h"
#include "NxCanApiWrapper.h"
#include "NxEthApiWrapper.h"
#include "TrafficFrames.h"

namespace {

void WaitForEndOfInput()
{
    std::fflush(stdout);
    char byte;
    while (read(STDIN_FILENO, &byte, 1) > 0) {
    }
}

std::unique_ptr<NxCanApiWrapper> Claim(const std::string& channel, NxBusError& result)
{
    NxCanApiWrapperSettings settings("127.0.0.1", channel, true, 500000, 2000000, false, false);
    auto wrapper = std::make_unique<NxCanApiWrapper>(settings);
    bool highSpeed = false;
    result = wrapper->Initialize(&highSpeed);
    return wrapper;
}

int Transmit(const std::string& channel)
{
    NxBusError result;
    auto wrapper = Claim(channel, result);
    if (result.errorCode != 0) {
        std::fprintf(stderr, "wrapper_peer: %s\n", wrapper->GetErrorMessage(result).c_str());
        return 2;
    }
    std::vector<NXSCanMessage> messages = nxbus_on_sim::ToMessages(nxbus_on_sim::MixedTraffic());
    result = wrapper->TransmitMessages(messages.data(), static_cast<std::uint32_t>(messages.size()));
    if (result.errorCode != 0) {
        std::fprintf(stderr, "wrapper_peer: %s\n", wrapper->GetErrorMessage(result).c_str());
        return 3;
    }
    std::printf("sent %zu\n", messages.size());
    WaitForEndOfInput();
    return 0;
}

template <class Wrapper>
int Hold(std::unique_ptr<Wrapper> wrapper, const NxBusError& result)
{
    if (result.errorCode != 0) {
        std::printf("refused: %s\n", wrapper->GetErrorMessage(result).c_str());
        return 0;
    }
    std::printf("ready\n");
    WaitForEndOfInput();
    return 0;
}

}  // namespace

int main(int argc, char** argv)
{
    veldor::Engine engine;
    const std::string command = argc == 3 ? argv[1] : "";
    if (command == "transmit") return Transmit(argv[2]);
    NxBusError result;
    if (command == "hold") {
        auto wrapper = Claim(argv[2], result);
        return Hold(std::move(wrapper), result);
    }
    if (command == "hold-interface") {
        auto wrapper = std::make_unique<NxEthApiWrapper>(NxEthApiWrapperSettings("127.0.0.1", argv[2], false, false));
        bool highSpeed = false;
        result = wrapper->Initialize(&highSpeed);
        return Hold(std::move(wrapper), result);
    }
    std::fprintf(stderr, "usage: wrapper_peer transmit|hold <channel> | hold-interface <id>\n");
    return 1;
}
