// A helper program run by a test: its standard output comes back line by
// line through a pipe, and its standard input is a pipe that the test can
// close to tell it to finish. The child gets this process's environment, so
// that it meets the test on the same simulated bus.
#ifndef NXTEST_CHILD_PROCESS_H
#define NXTEST_CHILD_PROCESS_H

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

extern char** environ;

namespace nxtest {

class ChildProcess {
public:
    ChildProcess(const std::string& program, std::vector<std::string> args)
    {
        int out[2];
        int in[2];
        if (pipe2(out, O_CLOEXEC) != 0)
            return;
        if (pipe2(in, O_CLOEXEC) != 0) {
            close(out[0]);
            close(out[1]);
            return;
        }
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
        posix_spawn_file_actions_adddup2(&actions, in[0], STDIN_FILENO);
        args.insert(args.begin(), program);
        std::vector<char*> argv;
        for (auto& a : args)
            argv.push_back(&a[0]);
        argv.push_back(nullptr);
        if (posix_spawn(&m_pid, program.c_str(), &actions, nullptr, argv.data(), environ) != 0)
            m_pid = -1;
        posix_spawn_file_actions_destroy(&actions);
        close(out[1]);
        close(in[0]);
        m_out = out[0];
        m_in = in[1];
    }
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;
    ~ChildProcess()
    {
        Kill();
        Reap();
        CloseInput();
        if (m_out >= 0)
            close(m_out);
    }

    bool Started() const { return m_pid > 0; }
    pid_t Pid() const { return m_pid; }

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
            if (m_out < 0 || poll(&p, 1, timeoutMs) <= 0)
                return {};
            char chunk[512];
            const ssize_t n = read(m_out, chunk, sizeof chunk);
            if (n <= 0)
                return {};
            m_buffer.append(chunk, static_cast<size_t>(n));
        }
    }
    // End of input for the child.
    void CloseInput()
    {
        if (m_in >= 0)
            close(m_in);
        m_in = -1;
    }
    void Kill()
    {
        if (m_pid > 0 && !m_reaped)
            kill(m_pid, SIGKILL);
    }
    // Waits for the end of the child; its wait status.
    int Reap()
    {
        if (m_pid <= 0 || m_reaped)
            return m_status;
        waitpid(m_pid, &m_status, 0);
        m_reaped = true;
        return m_status;
    }
    // Waits for the end of the child: true if it exited with status 0.
    bool ExitedCleanly()
    {
        const int status = Reap();
        return WIFEXITED(status) && WEXITSTATUS(status) == 0;
    }

private:
    pid_t m_pid = -1;
    int m_out = -1;
    int m_in = -1;
    bool m_reaped = false;
    int m_status = -1;
    std::string m_buffer;
};

}  // namespace nxtest

#endif
