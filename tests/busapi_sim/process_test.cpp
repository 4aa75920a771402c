// Several processes on one bus: traffic across them, channel claims, and a
// process that dies while it holds the bus. This program is also the other
// process (the environment selects the namespace and configuration, as for
// any user of the library); each mode prints "ready" once it is in place:
//   busapi_sim_tests receive CHANNEL COUNT TIMEOUT_MS  then a line per frame
//   busapi_sim_tests hold CHANNEL                      claims it and waits
//   busapi_sim_tests hold-lock BUS                     holds its lock and waits
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <thread>

#include "ChildProcess.h"
#include "scratch.h"
#include "sim_test_support.h"
#include "simulator.h"

namespace nxsim_test {
namespace {

class Peer : public nxtest::ChildProcess {
public:
    explicit Peer(std::vector<std::string> args) : ChildProcess("/proc/self/exe", std::move(args)) {}
};

using ProcessTest = SimTest;

TEST_F(ProcessTest, AnotherProcessReceivesWhatThisOneSends)
{
    Peer peer({"receive", "NVX-CAN-2", "3", "5000"});
    ASSERT_EQ(peer.Line(), "ready");
    const NXTCanHandle tx = Open("NVX-CAN-1");
    NXSCanMessage frames[] = {DataFrame(0x321, 2, false, 0, 0x10), DataFrame(0x1234567, 8, true, 0, 0x20),
                              DataFrame(0x7, 9, false, NXCAN_FLAG_TX_FD | NXCAN_FLAG_TX_BRS, 0x30)};
    ASSERT_EQ(NXCAN_TransmitMessages(tx, 3, frames), NXCAN_SUCCESS);
    EXPECT_EQ(peer.Line(), "321 1 2 0 10 17 00 00 00 00 00 00");
    EXPECT_EQ(peer.Line(), "1234567 2 8 0 20 27 2e 35 3c 43 4a 51");
    EXPECT_EQ(peer.Line(), "7 1 9 300 30 37 3e 45 4c 53 5a 61");
    const int status = peer.Reap();
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
}

TEST_F(ProcessTest, ChannelOfALiveProcessIsRefusedAndOfADeadOneReleased)
{
    Peer holder({"hold", "NVX-CAN-1"});
    ASSERT_EQ(holder.Line(), "ready");
    NXTCanHandle h = NXCAN_INVALID_HANDLE;
    EXPECT_EQ(Register("NVX-CAN-1", &h), NXCAN_ERR_CHANNEL_IN_USE);
    const std::string text = ErrorText(NXCAN_ERR_CHANNEL_IN_USE);
    EXPECT_NE(text.find("channel in use"), std::string::npos) << text;
    EXPECT_NE(text.find(std::to_string(holder.Pid())), std::string::npos) << text;
    EXPECT_EQ(Register("NVX-CAN-2", &h), NXCAN_SUCCESS) << "other channels stay free";

    holder.Kill();  // not reaped yet: a zombie holds nothing either
    NXTCanError rc = NXCAN_ERR_CHANNEL_IN_USE;
    EXPECT_TRUE(veldtest::Eventually([&] { return (rc = Register("NVX-CAN-1", &h)) != NXCAN_ERR_CHANNEL_IN_USE; }, 5));
    EXPECT_EQ(rc, NXCAN_SUCCESS) << ErrorText(rc);
}

TEST_F(ProcessTest, ProcessKilledHoldingTheBusLockDoesNotWedgeIt)
{
    Peer locker({"hold-lock", "CAN1"});
    ASSERT_EQ(locker.Line(), "ready");
    locker.Kill();
    locker.Reap();

    const NXTCanHandle tx = Open("NVX-CAN-1");
    const NXTCanHandle rx = Open("NVX-CAN-2");
    NXSCanMessage m = DataFrame(0x99, 4);
    ASSERT_EQ(NXCAN_TransmitMessages(tx, 1, &m), NXCAN_SUCCESS);
    const auto got = ReadAtLeast(rx, 1);
    ASSERT_EQ(got.size(), 1u);
    EXPECT_EQ(got[0].ulCanIdentifier, 0x99u);
}

}  // namespace
}  // namespace nxsim_test

namespace {

int RunPeer(const std::string& mode, char** argv)
{
    using namespace nxsim_test;
    NXTCanHandle h = NXCAN_INVALID_HANDLE;
    bool fd = false;
    if (mode == "hold-lock") {
        nxsim::Simulator& sim = nxsim::Simulator::Instance();
        nxsim::Bus* bus = sim.Ready() == NXCAN_SUCCESS ? sim.FindBus(argv[2]) : nullptr;
        std::string error;
        if (bus == nullptr || bus->EnsureAttached(&error) != NXCAN_SUCCESS)
            return std::fprintf(stderr, "bus %s: %s\n", argv[2], error.c_str()), 2;
        bus->SegmentForTests()->Lock();
    } else if (Register(argv[2], &h) != NXCAN_SUCCESS ||
               (mode == "receive" && (NXCAN_InitChannel(h, NXCAN_IDENTIFIER_TYPE_STD_XTD, 32768, true, &fd) != NXCAN_SUCCESS ||
                                      NXCAN_ActivateChannel(h) != NXCAN_SUCCESS))) {
        return std::fprintf(stderr, "cannot open %s\n", argv[2]), 2;
    }
    std::printf("ready\n");
    std::fflush(stdout);
    if (mode != "receive")
        for (;;)
            pause();
    std::vector<NXSCanMessage> buffer(256);
    size_t got = 0;
    const size_t wanted = std::strtoul(argv[3], nullptr, 10);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(std::atoi(argv[4]));
    while (got < wanted && std::chrono::steady_clock::now() < deadline) {
        uint32_t n = static_cast<uint32_t>(buffer.size());
        if (NXCAN_ReadReceiveQueue(h, &n, buffer.data()) != NXCAN_SUCCESS)
            return 4;
        for (const NXSCanMessage& m : std::vector<NXSCanMessage>(buffer.begin(), buffer.begin() + n)) {
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
    const std::string mode = argc > 1 ? argv[1] : "";
    if ((mode == "receive" && argc == 5) || ((mode == "hold" || mode == "hold-lock") && argc == 3))
        return RunPeer(mode, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
