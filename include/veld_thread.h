// One thread that runs for a module: its main thread or a further one. The
// engine's thread bodies make one on the thread itself, add it to the
// module's list while the thread runs, and remove it before the thread ends;
// the module's priority, processor and performance properties act on every
// thread of the list.
#ifndef VELD_THREAD_H
#define VELD_THREAD_H

#include <sys/types.h>

#include "veld_os_c_wrappers_posix.h"
#include "veld_types.h"

class VELDThread {
public:
    // The calling thread.
    VELDThread();
    VELDThread(const VELDThread&) = delete;
    VELDThread& operator=(const VELDThread&) = delete;

    // 0 to 255, 128 being the normal priority. Mapped to the thread's nice
    // value (a higher priority, a lower nice value); from kRealTimePriority
    // up, to real-time scheduling where the system allows it. Refused
    // quietly where the system does not allow it. False when refused.
    static const int kRealTimePriority = 250;
    bool SetPriority(int priority);
    // Binds the thread to one processor, or frees it with -1. False when
    // refused (no such processor).
    bool SetProcessor(int cpu);
    // The thread's use of a processor since the previous call (or since the
    // thread was made), in hundredths of a percent.
    VELDInt64 GetCPULoad();
    // Context switches of the thread since the previous call, times 100, so
    // that a sum over threads rounds like the CPU load.
    VELDInt64 GetContextSwitches();

    VELDThreadId Id() const { return m_id; }
    // The kernel's number of the thread.
    pid_t SystemId() const { return m_tid; }
    int Priority() const { return m_priority; }
    int Processor() const { return m_processor; }

private:
    VELDInt64 CpuTime();  // microseconds of processor time
    VELDInt64 Switches();

    VELDThreadId m_id;
    pid_t m_tid;
    int m_priority;
    int m_processor;
    VELDInt64 m_lastWall;
    VELDInt64 m_lastCpu;
    VELDInt64 m_lastSwitches;
};

#endif
