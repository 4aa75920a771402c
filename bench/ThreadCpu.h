// The CPU time of a thread of this process found by its name (what the
// simulated libraries call their threads, such as "nxsim-replay").
#pragma once

#include <dirent.h>
#include <sched.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <fstream>
#include <string>
#include <thread>

namespace veldor_bench {

// Nanoseconds on the CPU of the threads called `name`, and whether one of
// them runs at real-time priority.
inline uint64_t ThreadCpuNs(const char* name, bool* realtime = nullptr)
{
    DIR* tasks = opendir("/proc/self/task");
    uint64_t total = 0;
    for (dirent* e = tasks != nullptr ? readdir(tasks) : nullptr; e != nullptr; e = readdir(tasks)) {
        const std::string dir = std::string("/proc/self/task/") + e->d_name;
        std::string comm;
        std::getline(std::ifstream(dir + "/comm"), comm);
        if (comm != name)
            continue;
        uint64_t ns = 0;
        std::ifstream(dir + "/schedstat") >> ns;
        total += ns;
        if (realtime != nullptr)
            *realtime = *realtime || sched_getscheduler(std::stoi(e->d_name)) == SCHED_FIFO;
    }
    if (tasks != nullptr)
        closedir(tasks);
    return total;
}

// Follows the CPU time of a thread that comes and goes, every 50 ms: what
// it had used when it was seen last.
class ThreadCpuWatch {
public:
    explicit ThreadCpuWatch(const char* name)
        : m_thread([this, name] {
              while (!m_stop) {
                  bool realtime = false;
                  const uint64_t ns = ThreadCpuNs(name, &realtime);
                  if (ns > 0) {
                      m_ns = ns;
                      m_realtime = m_realtime || realtime;
                  }
                  std::this_thread::sleep_for(std::chrono::milliseconds(50));
              }
          })
    {
    }
    ~ThreadCpuWatch()
    {
        m_stop = true;
        m_thread.join();
    }
    uint64_t Ns() const { return m_ns; }
    bool RealTime() const { return m_realtime; }

private:
    std::atomic<bool> m_stop{false};
    std::atomic<uint64_t> m_ns{0};
    std::atomic<bool> m_realtime{false};
    std::thread m_thread;
};

}  // namespace veldor_bench
