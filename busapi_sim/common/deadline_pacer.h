// Emission on time. A thread that must act at absolute deadlines on the
// hardware clock sleeps until shortly before each deadline, with its timer
// slack at the minimum, and spins through the rest.
//
// How long before the deadline the sleep ends (the lead) follows how late
// this machine's wake-ups come, up to a bound, in two ways. It covers the
// wake-up that 995 in 1000 of the recent ones (the last thousand or so) came
// before: on a machine that wakes a thread within 30 us nine times in ten but
// now and then 200 us late, one frame in a hundred would otherwise go out that
// late. And it rises at once to cover a late wake-up, halving every 20 ms of
// time after it, for a stretch of slow ones. It starts at the bound, so that
// the first deadlines are met before the thread knows its wake-ups. Deadlines
// closer together than the lead are spun through.
//
// The first deadline is spun to from 2 ms before it: the thread has slept
// since it was made, and a late first frame would shift every comparison
// of the replay with its original, which lines the two up on it.
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
    static constexpr int64_t kFirstLeadNs = 2000000;
    // The lateness of wake-ups is counted in steps of 10 us up to the bound,
    // the last step holding all later ones; a wake-up weighs 1/1024 more than
    // the one before it, so that old ones fade.
    static constexpr int64_t kStepNs = 10000;
    static constexpr int kSteps = kMaxLeadNs / kStepNs + 1;
    static constexpr double kLateShare = 0.005;
    static constexpr double kFading = 1.0 + 1.0 / 1024;

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

    // The lead that covers all but kLateShare of the recent wake-ups.
    int64_t UsualLeadNs() const;

    double m_lateness[kSteps] = {};       // weight of the wake-ups by lateness
    double m_weight = 1;                  // of the next wake-up
    double m_total = 0;
    int64_t m_usualLeadNs = 0;
    int64_t m_raisedLeadNs = kMaxLeadNs;  // the lead as it was raised last
    int64_t m_raisedAtNs = 0;             // 0: no wake-up yet
    int64_t m_budgetNs = kBudgetNs;       // spinning allowed, as of m_budgetAtNs
    int64_t m_budgetAtNs = 0;
    bool m_spunToOne = false;             // a deadline was spun to
    std::atomic<uint64_t> m_spunNs{0};
};

}  // namespace nxsim
