// Several processes on one bus: traffic across them, channel claims, and a
// process that dies while it holds the bus.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <sstream>
#include <thread>

#include "sim_test_support.h"

extern char** environ;

namespace nxsim_test {
namespace {

// A child process running nxsim_peer, with its standard output on a pipe.
class Peer {
public:
    explicit Peer(std::vector<std::string> args)
    {
        int fds[2];
        if (pipe2(fds, O_CLOEXEC) != 0)
            return;
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, fds[1], STDOUT_FILENO);
        args.insert(args.begin(), NXSIM_PEER);
        std::vector<char*> argv;
        for (auto& a : args)
            argv.push_back(a.data());
        argv.push_back(nullptr);
        if (posix_spawn(&m_pid, NXSIM_PEER, &actions, nullptr, argv.data(), environ) != 0)
            m_pid = -1;
        posix_spawn_file_actions_destroy(&actions);
        close(fds[1]);
        m_out = fds[0];
    }
    ~Peer()
    {
        Kill();
        Reap();
        if (m_out >= 0)
            close(m_out);
    }

    // The next line of output, or "" after the timeout or at the end.
    std::string Line(int timeoutMs = 5000)
    {
        for (;;) {
            const auto nl = m_buffer.find('\n');
            if (nl != std::string::npos) {
                std::string line = m_buffer.substr(0, nl);
                m_buffer.erase(0, nl + 1);
                return line;
            }
            pollfd p{m_out, POLLIN, 0};
            if (poll(&p, 1, timeoutMs) <= 0)
                return {};
            char chunk[512];
            const ssize_t n = read(m_out, chunk, sizeof chunk);
            if (n <= 0)
                return {};
            m_buffer.append(chunk, static_cast<size_t>(n));
        }
    }
    void Kill()
    {
        if (m_pid > 0 && !m_reaped)
            kill(m_pid, SIGKILL);
    }
    int Reap()
    {
        if (m_pid <= 0 || m_reaped)
            return m_status;
        waitpid(m_pid, &m_status, 0);
        m_reaped = true;
        return m_status;
    }
    pid_t Pid() const { return m_pid; }

private:
    pid_t m_pid = -1;
    int m_out = -1;
    bool m_reaped = false;
    int m_status = -1;
    std::string m_buffer;
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
