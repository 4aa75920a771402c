#include "veld_thread.h"

#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "veld.h"

namespace {

VELDInt64 WallTime() { return VELD::GetSystemAccurateTiming(); }

}  // namespace

VELDThread::VELDThread()
    : m_id(pthread_self()), m_tid(static_cast<pid_t>(syscall(SYS_gettid))), m_priority(128), m_processor(-1),
      m_lastWall(WallTime()), m_lastCpu(CpuTime()), m_lastSwitches(Switches())
{
}

bool VELDThread::SetPriority(int priority)
{
    m_priority = priority;
    // The top of the range is real time, where the system allows it: such a
    // thread runs as soon as it wakes, first in, first out, at the lowest
    // real-time level (below the engine's timer and any hardware's threads).
    // A time-sharing thread, however favoured, may wait out the running
    // thread's slice, milliseconds on a busy machine. Real time suits
    // threads that wake often and work briefly, such as a bus monitor's
    // reader.
    sched_param param{};
    if (priority >= kRealTimePriority) {
        param.sched_priority = 1;
        if (pthread_setschedparam(m_id, SCHED_FIFO, &param) == 0) return true;
    } else {
        int policy = SCHED_OTHER;
        if (pthread_getschedparam(m_id, &policy, &param) == 0 && policy == SCHED_FIFO) {
            param.sched_priority = 0;
            pthread_setschedparam(m_id, SCHED_OTHER, &param);
        }
    }
    // 128 is the nice value 0; each 13 steps above or below move it by one,
    // within the system's -20 to 19.
    int nice = (128 - priority) / 13;
    if (nice < -20) nice = -20;
    if (nice > 19) nice = 19;
    return setpriority(PRIO_PROCESS, static_cast<id_t>(m_tid), nice) == 0;
}

bool VELDThread::SetProcessor(int cpu)
{
    cpu_set_t set;
    CPU_ZERO(&set);
    const long count = sysconf(_SC_NPROCESSORS_CONF);
    if (cpu < 0) {
        for (long i = 0; i < count && i < CPU_SETSIZE; ++i) CPU_SET(static_cast<int>(i), &set);
    } else {
        if (cpu >= count || cpu >= CPU_SETSIZE) return false;
        CPU_SET(cpu, &set);
    }
    if (pthread_setaffinity_np(m_id, sizeof set, &set) != 0) return false;
    m_processor = cpu;
    return true;
}

VELDInt64 VELDThread::CpuTime()
{
    clockid_t clock;
    timespec ts;
    if (pthread_getcpuclockid(m_id, &clock) != 0 || clock_gettime(clock, &ts) != 0) return 0;
    return static_cast<VELDInt64>(ts.tv_sec) * 1000000 + ts.tv_nsec / 1000;
}

VELDInt64 VELDThread::Switches()
{
    char path[64];
    std::snprintf(path, sizeof path, "/proc/self/task/%d/status", static_cast<int>(m_tid));
    std::FILE* file = std::fopen(path, "r");
    if (!file) return 0;
    VELDInt64 total = 0;
    char line[256];
    while (std::fgets(line, sizeof line, file)) {
        long long value = 0;
        if (std::sscanf(line, "voluntary_ctxt_switches: %lld", &value) == 1 ||
            std::sscanf(line, "nonvoluntary_ctxt_switches: %lld", &value) == 1)
            total += value;
    }
    std::fclose(file);
    return total;
}

VELDInt64 VELDThread::GetCPULoad()
{
    const VELDInt64 wall = WallTime();
    const VELDInt64 cpu = CpuTime();
    const VELDInt64 elapsed = wall - m_lastWall;
    const VELDInt64 used = cpu - m_lastCpu;
    m_lastWall = wall;
    m_lastCpu = cpu;
    return elapsed > 0 ? used * 10000 / elapsed : 0;
}

VELDInt64 VELDThread::GetContextSwitches()
{
    const VELDInt64 now = Switches();
    const VELDInt64 delta = now - m_lastSwitches;
    m_lastSwitches = now;
    return delta * 100;
}
