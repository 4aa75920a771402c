// Emission on time. A thread that must act at absolute deadlines on the
// hardware clock sleeps until shortly before each deadline, with its timer
// slack at the minimum, and spins through the rest.
//
// How long before the deadline the sleep ends (the lead) follows how late
// this machine's wake-ups come: it rises at once to cover a late wake-up, up
// to a bound, and halves every 20 ms of time after it. It starts at the
// bound, so that the first deadlines are met before the thread knows its
// wake-ups. Deadlines closer together than the lead are spun through.
//
// Spinning draws on a budget that fills at half the time that passes, up to
// 2 ms: a burst of deadlines is spun through, but a thread never spins more
// than about half of its time, for then it would take a whole core, and a
// real-time thread would be throttled by the kernel.
#pragma once

#include <atomic>
#include <cstdint>

namespace nxsim {

// Readies the calling thread for precise wake-ups: names it, sets its timer
// slack to 1 ns and, where the system allows it and `priority` is above 0,
// gives it real-time priority (SCHED_FIFO). Works on without it; returns
// whether real-time priority was granted.
bool PrepareTimingThread(const char* name, int priority);

class DeadlinePacer {
public:
    static constexpr int64_t kMinLeadNs = 20000;
    static constexpr int64_t kMaxLeadNs = 300000;
    static constexpr int64_t kHalfLifeNs = 20000000;
    static constexpr int64_t kBudgetNs = 2000000;

    // When to stop sleeping for a deadline, seen at `nowNs` (monotonic).
    int64_t WakeFor(int64_t deadlineNs, int64_t nowNs);

    // A sleep meant to end at `targetNs` ended at `wokeNs` (monotonic).
    void NoteWake(int64_t targetNs, int64_t wokeNs);

    // Spins until the monotonic clock reaches `deadlineNs`; returns the time
    // read at the end.
    int64_t SpinUntil(int64_t deadlineNs);

    // Nanoseconds spent spinning so far; read from any thread.
    uint64_t SpunNs() const { return m_spunNs.load(std::memory_order_relaxed); }

private:
    int64_t LeadNs(int64_t nowNs) const;
    int64_t BudgetAt(int64_t nowNs);

    int64_t m_raisedLeadNs = kMaxLeadNs;  // the lead as it was raised last
    int64_t m_raisedAtNs = 0;             // 0: no wake-up yet
    int64_t m_budgetNs = kBudgetNs;       // spinning allowed, as of m_budgetAtNs
    int64_t m_budgetAtNs = 0;
    std::atomic<uint64_t> m_spunNs{0};
};

}  // namespace nxsim
