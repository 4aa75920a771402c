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
#include <cstdint>
#include <thread>
#include <vector>

namespace veldor_bench {

struct WakeLatency {
    bool realtime = false;
    double p50 = 0, p99 = 0, p999 = 0, max = 0;  // microseconds
};

// `count` sleeps to deadlines 1 ms apart.
inline WakeLatency MeasureWakeLatency(int count = 2000)
{
    WakeLatency w;
    std::thread([&] {
        prctl(PR_SET_TIMERSLACK, 1UL, 0, 0, 0);
        sched_param param{};
        param.sched_priority = 10;
        w.realtime = pthread_setschedparam(pthread_self(), SCHED_FIFO, &param) == 0;
        auto now = [] {
            timespec t;
            clock_gettime(CLOCK_MONOTONIC, &t);
            return static_cast<int64_t>(t.tv_sec) * 1000000000 + t.tv_nsec;
        };
        std::vector<double> late;
        int64_t due = now();
        for (int i = 0; i < count; ++i) {
            due += 1000000;
            const timespec ts{static_cast<time_t>(due / 1000000000), static_cast<long>(due % 1000000000)};
            clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &ts, nullptr);
            late.push_back(static_cast<double>(now() - due) / 1000);
        }
        std::sort(late.begin(), late.end());
        auto at = [&](double q) { return late[static_cast<size_t>(q * static_cast<double>(late.size() - 1))]; };
        w.p50 = at(0.5);
        w.p99 = at(0.99);
        w.p999 = at(0.999);
        w.max = late.back();
    }).join();
    return w;
}

}  // namespace veldor_bench
