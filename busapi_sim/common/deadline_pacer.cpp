#include "deadline_pacer.h"

#include <pthread.h>
#include <sched.h>
#include <sys/prctl.h>

#include <algorithm>

#include "hardware_clock.h"

namespace nxsim {

namespace {

constexpr int64_t kLeadMarginNs = 10000;

inline void Relax()
{
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#endif
}

}  // namespace

bool PrepareTimingThread(const char* name, int priority)
{
    pthread_setname_np(pthread_self(), name);
    prctl(PR_SET_TIMERSLACK, 1UL, 0, 0, 0);  // 0 would mean the default of 50 us
    if (priority <= 0)
        return false;
    sched_param param{};
    param.sched_priority = std::min(priority, sched_get_priority_max(SCHED_FIFO));
    return pthread_setschedparam(pthread_self(), SCHED_FIFO, &param) == 0;
}

int64_t DeadlinePacer::BudgetAt(int64_t nowNs)
{
    if (m_budgetAtNs != 0)
        m_budgetNs = std::min(kBudgetNs, m_budgetNs + std::max<int64_t>(0, nowNs - m_budgetAtNs) / 2);
    m_budgetAtNs = nowNs;
    return m_budgetNs;
}

int64_t DeadlinePacer::WakeFor(int64_t deadlineNs, int64_t nowNs)
{
    return deadlineNs - std::max<int64_t>(0, std::min(LeadNs(nowNs), BudgetAt(nowNs)));
}

int64_t DeadlinePacer::LeadNs(int64_t nowNs) const
{
    if (!m_spunToOne)
        return kFirstLeadNs;
    if (m_raisedAtNs == 0)
        return m_raisedLeadNs;
    const int64_t halvings = std::max<int64_t>(0, nowNs - m_raisedAtNs) / kHalfLifeNs;
    const int64_t raised = halvings >= 16 ? 0 : m_raisedLeadNs >> halvings;
    return std::max({kMinLeadNs, m_usualLeadNs, raised});
}

int64_t DeadlinePacer::UsualLeadNs() const
{
    // From the latest step down, to the one in which the share is reached:
    // the lead covers that step whole.
    double later = 0;
    int step = kSteps - 1;
    for (; step > 0; --step) {
        later += m_lateness[step];
        if (later > kLateShare * m_total)
            break;
    }
    return std::min(kMaxLeadNs, (step + 1) * kStepNs + kLeadMarginNs);
}

void DeadlinePacer::NoteWake(int64_t targetNs, int64_t wokeNs)
{
    const int64_t late = std::max<int64_t>(0, wokeNs - targetNs);
    m_lateness[std::min<int64_t>(kSteps - 1, late / kStepNs)] += m_weight;
    m_total += m_weight;
    m_weight *= kFading;
    if (m_weight > 1e12) {
        // Scaled down now and then; the shares stay.
        for (double& w : m_lateness)
            w /= m_weight;
        m_total /= m_weight;
        m_weight = 1;
    }
    m_usualLeadNs = UsualLeadNs();

    const int64_t wanted = std::min(kMaxLeadNs, late + kLeadMarginNs);
    if (m_raisedAtNs == 0) {
        // The first wake-up: the longest lead starts coming down from here.
        m_raisedLeadNs = std::max(m_raisedLeadNs, wanted);
        m_raisedAtNs = wokeNs;
    } else if (wanted > LeadNs(wokeNs)) {
        m_raisedLeadNs = wanted;
        m_raisedAtNs = wokeNs;
    }
}

int64_t DeadlinePacer::SpinUntil(int64_t deadlineNs)
{
    const int64_t begin = MonotonicNs();
    int64_t now = begin;
    while (now < deadlineNs) {
        Relax();
        now = MonotonicNs();
    }
    BudgetAt(begin);
    m_budgetNs -= now - begin;
    m_spunToOne = true;
    m_spunNs.fetch_add(static_cast<uint64_t>(now - begin), std::memory_order_relaxed);
    return now;
}

}  // namespace nxsim
