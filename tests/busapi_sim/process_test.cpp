// Several processes on one bus: traffic across them, channel claims, and a
// process that dies while it holds the bus.
#include <sys/wait.h>

#include <sstream>
#include <thread>

#include "ChildProcess.h"
#include "sim_test_support.h"

namespace nxsim_test {
namespace {

// A child process running nxsim_peer.
class Peer : public nxtest::ChildProcess {
public:
    explicit Peer(std::vector<std::string> args) : ChildProcess(NXSIM_PEER, std::move(args)) {}
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
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    NXTCanError rc = NXCAN_ERR_CHANNEL_IN_USE;
    while (rc == NXCAN_ERR_CHANNEL_IN_USE && std::chrono::steady_clock::now() < deadline) {
        rc = Register("NVX-CAN-1", &h);
        if (rc == NXCAN_ERR_CHANNEL_IN_USE)
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
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
