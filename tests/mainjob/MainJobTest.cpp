#include "MainJobTest.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <thread>


namespace mainjob {

std::vector<CanFrame> CountedFrames(std::size_t count, std::int64_t period, std::int64_t start)
{
    std::vector<CanFrame> frames;
    for (std::size_t k = 0; k < count; ++k) {
        CanFrame f;
        f.timestamp = start + static_cast<std::int64_t>(k) * period;
        f.id = 0x100 + static_cast<std::uint32_t>(k % 8);
        f.length = 8;
        for (int i = 0; i < 8; ++i) f.data[i] = static_cast<std::uint8_t>(i < 4 ? k >> (8 * i) : k + i);
        frames.push_back(f);
    }
    return frames;
}

std::vector<CanFrame> ReadLog(const std::string& path)
{
    const canlog_test::ReadOutcome r = canlog_test::ReadAll(path);
    EXPECT_EQ(r.openError, "");
    EXPECT_EQ(r.messages, std::vector<std::string>()) << path;
    return r.frames;
}

std::vector<Arrival> ReadArrivals(const std::string& path)
{
    std::vector<Arrival> arrivals;
    std::istringstream lines(ReadText(path));
    for (std::string line; std::getline(lines, line);) {
        Arrival a{};
        if (std::sscanf(line.c_str(), "%lld,%lld,%lld", &a.counter, &a.frameTime, &a.arrival) == 3)
            arrivals.push_back(a);
    }
    return arrivals;
}

std::vector<std::string> CommandResult::ErrLines() const
{
    std::vector<std::string> lines;
    std::istringstream text(err);
    for (std::string line; std::getline(text, line);) lines.push_back(line);
    return lines;
}

namespace {

int g_launches = 0;

}  // namespace

Veldor::Veldor(const std::vector<std::string>& arguments, const std::string& folder)
{
    const std::string tag = folder + "/veldor." + std::to_string(++g_launches);
    m_out = tag + ".out";
    m_err = tag + ".err";
    m_pid = fork();
    if (m_pid == 0) {
        const int out = open(m_out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        const int err = open(m_err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        dup2(out, STDOUT_FILENO);
        dup2(err, STDERR_FILENO);
        std::vector<char*> argv{const_cast<char*>(VELDOR_COMMAND)};
        for (const std::string& a : arguments) argv.push_back(const_cast<char*>(a.c_str()));
        argv.push_back(nullptr);
        execv(VELDOR_COMMAND, argv.data());
        _exit(127);
    }
}

Veldor::~Veldor()
{
    if (!m_waited && m_pid > 0) {
        kill(m_pid, SIGKILL);
        waitpid(m_pid, nullptr, 0);
    }
}

void Veldor::Interrupt() { kill(m_pid, SIGINT); }

CommandResult Veldor::Wait(double seconds)
{
    CommandResult result;
    const auto until = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    int status = 0;
    for (;;) {
        if (waitpid(m_pid, &status, WNOHANG) == m_pid) {
            result.code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
            break;
        }
        if (std::chrono::steady_clock::now() > until) {
            kill(m_pid, SIGKILL);
            waitpid(m_pid, &status, 0);
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    m_waited = true;
    result.out = ReadText(m_out);
    result.err = ReadText(m_err);
    return result;
}

CommandResult RunVeldor(const std::vector<std::string>& arguments, const std::string& folder, double seconds)
{
    return Veldor(arguments, folder).Wait(seconds);
}

}  // namespace mainjob
