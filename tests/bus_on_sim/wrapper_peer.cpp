// A second process on the simulated bus and link that uses the package's
// wrappers, for the tests that need one:
//   wrapper_peer hold <channel>            claims the CAN channel, prints "ready", or
//                                          "refused: <text>" and ends
//   wrapper_peer hold-interface <id>       the same for an Ethernet interface
// Each keeps what it claimed until its standard input ends.
// Errors go to standard error, with a non-zero exit status.
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <string>

#include "Engine.h"
#include "NxCanApiWrapper.h"
#include "NxEthApiWrapper.h"

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
    std::fprintf(stderr, "usage: wrapper_peer hold <channel> | hold-interface <id>\n");
    return 1;
}
