// The peer of the replay figures: how late a thread of this machine wakes
// from a sleep to an absolute deadline, with its timer slack at 1 ns and at
// real-time priority where allowed, as the replay threads of the simulated
// libraries sleep. What the machine gives, measured in the same run.
#pragma once

#include <pthread.h>
#include <sched.h>
#include <sys/prctl.h>
#include <time.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <thread>
#include <vector>

namespace veldor_bench {

struct WakeLatency {
    bool realtime = false;
    double p50 = 0, p99 = 0, p999 = 0, max = 0;  // microseconds
};

// Sleeps to deadlines 1 ms apart on a thread of its own, `count` times, or
// with a count of 0 until Stop: run beside a replay, it tells how the
// machine itself stalled during it. A wake-up costs a few microseconds.
class WakeLatencyWatch {
public:
    explicit WakeLatencyWatch(int count = 0) : m_count(count), m_thread([this] { Run(); }) {}
    ~WakeLatencyWatch() { Stop(); }
    WakeLatencyWatch(const WakeLatencyWatch&) = delete;
    WakeLatencyWatch& operator=(const WakeLatencyWatch&) = delete;

    WakeLatency Stop()
    {
        m_stop = true;
        return Wait();
    }
    WakeLatency Wait()
    {
        if (m_thread.joinable()) m_thread.join();
        return m_result;
    }

private:
    void Run()
    {
        prctl(PR_SET_TIMERSLACK, 1UL, 0, 0, 0);
        sched_param param{};
        param.sched_priority = 10;
        m_result.realtime = pthread_setschedparam(pthread_self(), SCHED_FIFO, &param) == 0;
        auto now = [] {
            timespec t;
            clock_gettime(CLOCK_MONOTONIC, &t);
            return static_cast<int64_t>(t.tv_sec) * 1000000000 + t.tv_nsec;
        };
        std::vector<double> late;
        int64_t due = now();
        while (!m_stop && (m_count == 0 || static_cast<int>(late.size()) < m_count)) {
            due += 1000000;
            const timespec ts{static_cast<time_t>(due / 1000000000), static_cast<long>(due % 1000000000)};
            clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &ts, nullptr);
            late.push_back(static_cast<double>(now() - due) / 1000);
        }
        if (late.empty()) return;
        std::sort(late.begin(), late.end());
        auto at = [&](double q) { return late[static_cast<size_t>(q * static_cast<double>(late.size() - 1))]; };
        m_result.p50 = at(0.5);
        m_result.p99 = at(0.99);
        m_result.p999 = at(0.999);
        m_result.max = late.back();
    }

    const int m_count;
    std::atomic<bool> m_stop{false};
    WakeLatency m_result;
    std::thread m_thread;  // last: it starts once the rest is there
};

// `count` sleeps to deadlines 1 ms apart.
inline WakeLatency MeasureWakeLatency(int count = 2000) { return WakeLatencyWatch(count).Wait(); }

}  // namespace veldor_bench
