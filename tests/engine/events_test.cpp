// Events, the multi-event wait, conditions, recursive mutexes and the
// engine's timed triggers.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <random>
#include <thread>
#include <vector>

#include "Engine.h"
#include "quiet_engine.h"
#include "veld.h"
#include "veld_constants.h"
#include "veld_event.h"

namespace {

VELDTimestamp Now() { return veldor::EngineClock::Monotonic(); }

}  // namespace

TEST(Event, ManualResetAndZeroTimeout)
{
    veldor::Engine engine(Quiet());
    VELDEvent e(false, "e");
    EXPECT_EQ(e.Wait(0), VELD::TimeOut);
    e.Set();
    e.Set();  // setting a set event does nothing
    EXPECT_EQ(e.Wait(0), 0);
    EXPECT_EQ(e.Wait(VELD::Infinite), 0);  // stays set
    e.Reset();
    EXPECT_EQ(e.Wait(1000), VELD::TimeOut);
    VELDEvent initiallySet(true, nullptr);
    EXPECT_EQ(initiallySet.Wait(0), 0);
}

TEST(Event, MultiWaitReturnsTheFirstSetInArrayOrder)
{
    veldor::Engine engine(Quiet());
    VELDEvent a, b, c;
    VELDEvent* all[3] = {&a, &b, &c};
    EXPECT_EQ(VELDEvent::Wait(3, all, 0), VELD::TimeOut);
    c.Set();
    b.Set();
    EXPECT_EQ(VELDEvent::Wait(3, all, 0), 1);
    EXPECT_EQ(VELDEvent::Wait(3, all, VELD::Infinite), 1);
    VELDEvent* twice[2] = {&c, &c};  // one event twice must not wedge Set
    c.Reset();
    std::thread setter([&] { c.Set(); });
    EXPECT_EQ(VELDEvent::Wait(2, twice, 5000000), 0);
    setter.join();
    EXPECT_EQ(a.m_waitingThreads.Size(), 0);
    EXPECT_EQ(c.m_waitingThreads.Size(), 0);
}

// Waiters wait on their own two events and a shared stop event while
// setters race with them; a lost wake-up shows as a wait that times out.
TEST(Event, MultiWaitNeverMissesARacingSet)
{
    veldor::Engine engine(Quiet());
    const int kWaiters = 4, kRounds = 400;
    std::vector<VELDEvent> first(kWaiters), second(kWaiters), done(kWaiters);
    VELDEvent stop;
    std::atomic<int> lost(0);
    std::vector<std::thread> threads;
    for (int w = 0; w < kWaiters; ++w) {
        threads.emplace_back([&, w] {
            VELDEvent* events[3] = {&first[w], &second[w], &stop};
            for (int round = 0; round < kRounds; ++round) {
                const int r = VELDEvent::Wait(3, events, 5000000);
                if (r == VELD::TimeOut) ++lost;
                if (r == VELD::TimeOut || r == 2) return;
                events[r]->Reset();
                done[w].Set();
            }
        });
    }
    // A setter per waiter picks one of its events at random each round, and
    // sets it at once, while the waiter registers, or once it sleeps.
    for (int w = 0; w < kWaiters; ++w) {
        threads.emplace_back([&, w] {
            std::mt19937 random(static_cast<unsigned>(w));
            for (int round = 0; round < kRounds; ++round) {
                const unsigned draw = random() % 64;
                if (draw < 32)
                    for (unsigned i = 0; i < draw; ++i) std::this_thread::yield();
                else if (draw < 40)
                    std::this_thread::sleep_for(std::chrono::microseconds(draw * 5));
                (random() & 1 ? first[w] : second[w]).Set();
                if (done[w].Wait(5000000) == VELD::TimeOut) {
                    ++lost;
                    return;
                }
                done[w].Reset();
            }
        });
    }
    for (std::thread& t : threads) t.join();
    EXPECT_EQ(lost.load(), 0);
}

TEST(Triggers, FireInTimeOrderAndNeverEarly)
{
    veldor::Engine engine(Quiet());
    const int kEvents = 120;
    std::vector<VELDEvent> events(kEvents);
    std::vector<VELDTimestamp> deadlines(kEvents);
    // Armed from several threads, in no particular order, all before the
    // first is due: a machine too busy to arm them in time gets a longer
    // lead.
    VELDTimestamp start = 0;
    for (VELDTimestamp lead = 20000;; lead *= 4) {
        start = Now() + lead;
        for (int i = 0; i < kEvents; ++i) deadlines[i] = start + i * 300;  // i is due before i + 1
        std::vector<std::thread> armers;
        for (int t = 0; t < 4; ++t)
            armers.emplace_back([&, t] {
                for (int i = kEvents - 1 - t; i >= 0; i -= 4)
                    engine.Events().SetTrigger(&events[i], deadlines[i]);
            });
        for (std::thread& t : armers) t.join();
        if (Now() < start) break;
        for (VELDEvent& event : events) {
            engine.Events().ResetTrigger(&event);
            event.Reset();
        }
    }

    // At every poll the events that fired form a prefix of the deadline
    // order, and none of them was due later than the poll. The states are
    // read from the last event to the first: an event that fires in order
    // after one was read set is then read set as well.
    int fired = 0;
    VELDTimestamp give_up = start + kEvents * 300 + 5000000;
    while (fired < kEvents && Now() < give_up) {
        std::vector<bool> set(kEvents);
        for (int i = kEvents - 1; i >= 0; --i) set[i] = events[i].IsSet();
        const VELDTimestamp seen = Now();
        int count = 0;
        while (count < kEvents && set[count]) ++count;
        for (int i = count; i < kEvents; ++i) ASSERT_FALSE(set[i]) << "event " << i << " before " << count;
        if (count > 0) ASSERT_LE(deadlines[count - 1], seen);
        fired = count;
        std::this_thread::sleep_for(std::chrono::microseconds(100));
    }
    EXPECT_EQ(fired, kEvents);
    EXPECT_EQ(engine.Events().PendingTriggers(), 0u);
}

TEST(Triggers, ACancelledTriggerNeverFires)
{
    veldor::Engine engine(Quiet());
    std::vector<VELDEvent> events(40);
    for (VELDEvent& event : events) ASSERT_TRUE(event.SetTrigger(15000));
    for (int i = 0; i < 40; i += 2) events[i].ResetTrigger();
    std::this_thread::sleep_for(std::chrono::milliseconds(60));
    for (int i = 0; i < 40; ++i) EXPECT_EQ(events[i].IsSet(), i % 2 == 1) << i;
    // A trigger armed again replaces the pending one.
    VELDEvent again;
    again.SetTrigger(10000000);
    again.SetTrigger(1000);
    EXPECT_EQ(again.Wait(5000000), 0);
    EXPECT_EQ(engine.Events().PendingTriggers(), 0u);
}

// Events die with triggers pending, some at the very moment they fire; the
// timer thread must never touch one of them again (the sanitizers watch).
TEST(Triggers, AnEventDestroyedWithAPendingTriggerIsLeftAlone)
{
    veldor::Engine engine(Quiet());
    std::mt19937 random(7);
    for (int round = 0; round < 300; ++round) {
        std::unique_ptr<VELDEvent> event(new VELDEvent());
        event->SetTrigger(static_cast<long>(random() % 300));
        if (random() & 1) std::this_thread::sleep_for(std::chrono::microseconds(random() % 300));
    }
    EXPECT_EQ(engine.Events().PendingTriggers(), 0u);
}

TEST(Condition2, OneEventPerReader)
{
    veldor::Engine engine(Quiet());
    VELDMutex mutex;
    VELDEvent death;
    VELDCondition2 condition(&mutex, &death, 2000000);
    EXPECT_EQ(condition.Subscribe(), 0);
    condition.Subscribe(5);
    EXPECT_EQ(condition.nbEvents, 6);
    EXPECT_EQ(condition.events[3], nullptr);
    EXPECT_EQ(condition.Subscribe(), 6);

    std::thread reader([&] {
        mutex.Lock();
        condition.Wait(5);
        mutex.Release();
    });
    for (bool waiting = false; !waiting;) {  // signals once the reader waits
        std::this_thread::sleep_for(std::chrono::microseconds(100));
        mutex.Lock();
        if ((waiting = condition.waiting[5])) condition.Signal();
        mutex.Release();
    }
    reader.join();  // a lost signal hangs here
    EXPECT_FALSE(condition.waiting[5]);

    // The split form's outcomes, as a FIFO's readers meet them: data/fifo_test.
    condition.CutConnection();
    EXPECT_TRUE(death.IsSet());
}

TEST(Condition, SignalWakesBusyItemsAndThePoolIsReused)
{
    veldor::Engine engine(Quiet());
    VELDMutex mutex;
    VELDCondition condition(&mutex, nullptr);
    mutex.Lock();
    VELDEvent* first = nullptr;
    void* handle = (condition.*condition.WaitX)(&first);
    mutex.Lock();
    VELDEvent* second = nullptr;
    void* handle2 = (condition.*condition.WaitX)(&second);
    mutex.Lock();
    (condition.*condition.Signal)();
    EXPECT_TRUE(first->IsSet());
    EXPECT_TRUE(second->IsSet());
    mutex.Release();
    (condition.*condition.AchieveWaitX)(handle);  // takes the mutex and keeps it
    mutex.Release();
    (condition.*condition.AchieveWaitX)(handle2);
    EXPECT_EQ(condition.pool.Length(), 2);
    // A third wait takes a free item from the tail, reset.
    VELDEvent* third = nullptr;
    void* handle3 = (condition.*condition.WaitX)(&third);
    EXPECT_TRUE(third == first || third == second);
    EXPECT_FALSE(third->IsSet());
    EXPECT_EQ(condition.pool.Length(), 2);
    (condition.*condition.AchieveWaitX)(handle3);
    mutex.Release();
}

// Holders that now and then keep the lock long enough for the others to
// stop spinning and sleep: every increment made under the lock counts, and
// no sleeper is left behind (a lost wake-up hangs here). Both releases: the
// one without a fence, which the kernel's process-wide barrier makes safe,
// and the fenced one of a process without it.
TEST(Mutex, ExcludesAndWakesEverySleeper)
{
    const bool barrier = VELD::g_fencelessRelease.load();
    struct Case {
        int threads;
        bool fenceless;
    } const cases[] = {{2, true}, {8, true}, {8, false}};
    for (const Case& c : cases) {
        if (c.fenceless && !barrier) continue;  // unsafe without the barrier
        SCOPED_TRACE(testing::Message() << c.threads << " threads, fenceless " << c.fenceless);
        VELD::g_fencelessRelease.store(c.fenceless);
        VELDMutex mutex;
        long counter = 0;
        const int rounds = 3000;
        std::vector<std::thread> threads;
        for (int t = 0; t < c.threads; ++t) {
            threads.emplace_back([&] {
                for (int i = 0; i < rounds; ++i) {
                    mutex.Lock();
                    const long seen = counter;
                    if (i % 100 == 0) std::this_thread::sleep_for(std::chrono::microseconds(50));
                    counter = seen + 1;
                    mutex.Release();
                }
            });
        }
        for (std::thread& t : threads) t.join();
        EXPECT_EQ(counter, static_cast<long>(c.threads) * rounds);
    }
    VELD::g_fencelessRelease.store(barrier);
}

TEST(Mutex2, IsReentrantForItsOwnerOnly)
{
    VELDMutex2 lock;
    auto otherTakes = [&] {
        bool taken = false;
        std::thread([&] {
            if ((taken = lock.TryLock())) lock.Release();
        }).join();
        return taken;
    };
    lock.Lock();
    lock.Lock();
    EXPECT_TRUE(lock.IsLockedByCurrentThread());
    EXPECT_FALSE(otherTakes());
    lock.Release();
    EXPECT_TRUE(lock.IsLockedByCurrentThread());
    lock.Release();
    EXPECT_FALSE(lock.IsLockedByCurrentThread());
    EXPECT_TRUE(otherTakes());
}

TEST(MutexGuard, UnlockAndRelockReportChanges)
{
    VELDMutex plain;
    {
        VELDMutexGuard guard(plain);
        EXPECT_FALSE(plain.TryLock());
        EXPECT_TRUE(guard.unlock_mtx());
        EXPECT_FALSE(guard.unlock_mtx());
        EXPECT_TRUE(guard.relock_mtx());
        EXPECT_FALSE(guard.relock_mtx());
    }
    EXPECT_TRUE(plain.TryLock());
    plain.Release();
    VELDMutex2 recursive;
    {
        VELDMutexGuard outer(recursive);
        VELDMutexGuard inner(recursive);
        EXPECT_TRUE(recursive.IsLockedByCurrentThread());
    }
    EXPECT_FALSE(recursive.IsLockedByCurrentThread());
}
