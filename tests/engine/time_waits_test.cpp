// The waits of a module on the engine's clock: speed, pause, jumps and death.
// Bounds are generous; the precise figures are measured by a benchmark.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <thread>

#include "Engine.h"
#include "quiet_engine.h"
#include "veld.h"
#include "veld_clock.h"
#include "veld_constants.h"
#include "veld_event.h"
#include "veld_module_waits.h"
#include "veld_private.h"
#include "test_module.h"
#include "thrown.h"

namespace {

VELDTimestamp Now() { return veldor::EngineClock::Monotonic(); }

class ClockWaits : public ::testing::Test {
protected:
    ClockWaits() : engine(Quiet()) {}
    // Real microseconds that `body` takes.
    static long Elapsed(const std::function<void()>& body)
    {
        VELDTimestamp start = Now();
        body();
        return Now() - start;
    }
    // Runs `change` on another thread after `delay` microseconds. Times are
    // measured from before the thread is made (SinceStart): a main thread
    // that is late to begin its wait must not make the wait look short.
    std::thread Later(long delay, std::function<void()> change)
    {
        m_start = Now();
        return std::thread([delay, change] {
            std::this_thread::sleep_for(std::chrono::microseconds(delay));
            change();
        });
    }

    long SinceStart(const std::function<void()>& body)
    {
        body();
        return Now() - m_start;
    }

    VELDTimestamp m_start = 0;
    veldor::Engine engine;
    TestModule module;
    VELDEvent never;
};

}  // namespace

TEST_F(ClockWaits, ATimeoutIsClockTimeAtEverySpeed)
{
    const struct {
        int speed;
        long wait, atLeast;  // clock microseconds to wait, real ones that takes at least
    } cases[] = {{1000, 20000, 19000}, {500, 20000, 39000}, {-1000, 30000, 28000}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.speed);
        VELD::SetTimeSpeed(c.speed);
        const VELDTimestamp before = VELD::CurrentTime(true, true);
        // A timeout at a positive speed; a rest, that counts towards the past, at a negative one.
        long real = Elapsed([&] {
            EXPECT_EQ(c.speed > 0 ? VELDModuleWaits::Wait4Event(module.owner, &never, c.wait)
                                  : VELDModuleWaits::Rest(module.owner, c.wait, nullptr),
                      c.speed < 0);
        });
        EXPECT_GE(real, c.atLeast);
        EXPECT_LT(real, 1000000);
        if (c.speed < 0) {
            EXPECT_LE(VELD::CurrentTime(true, true), before - 29000);
        }
    }
}

TEST_F(ClockWaits, AnEventEndsTheWaitAndDeathThrows)
{
    never.Set();
    EXPECT_TRUE(VELDModuleWaits::Wait4Event(module.owner, &never, 20000));
    EXPECT_TRUE(VELDModuleWaits::Wait4Event(module.owner, &never, VELD::Infinite));
    VELDEvent clear;
    VELDEvent* list[1] = {&clear};
    std::thread dying = Later(10000, [&] { module.Die(); });
    EXPECT_EQ(Thrown([&] { VELDModuleWaits::Wait4Event(module.owner, &clear, 5000000); }), VELD::ModuleDied);
    dying.join();
    const std::function<void()> waits[] = {
        [&] { VELDModuleWaits::Wait4Event(module.owner, &clear, VELD::Infinite); },
        [&] { VELDModuleWaits::Rest(module.owner, 1000000, nullptr); },
        [&] { VELDModuleWaits::Wait(module.owner, VELD::CurrentTime(true, true) + 1000000, nullptr); },
        [&] { VELDModuleWaits::WaitForTimestamp(module.owner, VELD::CurrentTime(true, true) + 1000000, nullptr, nullptr); },
        [&] { VELDModuleWaits::MsgWait4Event(module.owner, &clear, 1000000); },
        [&] { VELDModuleWaits::Wait4Events(module.owner, 1, list, 1000000, true); },
    };
    for (size_t i = 0; i < std::size(waits); ++i) EXPECT_EQ(Thrown(waits[i]), VELD::ModuleDied) << "wait " << i;
}

TEST_F(ClockWaits, StoppedOrPausedTimeWaitsForTheStateToChange)
{
    const std::pair<void (*)(), void (*)()> stopAndGo[] = {{[] { VELD::SetTimeSpeed(0); }, [] { VELD::SetTimeSpeed(1000); }},
                                                            {[] { VELD::Pause(); }, [] { VELD::Play(); }}};
    for (const auto& c : stopAndGo) {
        c.first();
        std::thread go = Later(50000, c.second);
        EXPECT_GE(SinceStart([&] { EXPECT_FALSE(VELDModuleWaits::Wait4Event(module.owner, &never, 5000)); }), 50000);
        go.join();
    }
}

TEST_F(ClockWaits, ABackwardJumpRestartsTheWholeTimeout)
{
    std::thread jump = Later(60000, [] { VELD::SetCurrentTime(VELD::CurrentTime(true, true) - 1000000); });
    long real = SinceStart([&] { EXPECT_FALSE(VELDModuleWaits::Wait4Event(module.owner, &never, 100000)); });
    jump.join();
    EXPECT_GE(real, 155000);  // 60 ms before the jump, then 100 ms again
}

TEST_F(ClockWaits, RestKeepsWhatWasSpentAcrossASpeedChange)
{
    std::atomic<long> changedAt{0};
    std::thread slower = Later(50000, [&] {
        VELD::SetTimeSpeed(500);
        changedAt = Now() - m_start;
    });
    long real = SinceStart([&] { EXPECT_TRUE(VELDModuleWaits::Rest(module.owner, 100000, nullptr)); });
    slower.join();
    // The clock time spent before the change at full speed, the rest of the
    // 100 ms at half speed: 150 ms when the change came on time, less when
    // a loaded machine made it late, never less than the 100 ms themselves.
    const long change = changedAt;
    EXPECT_GE(real, std::max(100000L, 200000 - change) - 1000) << "speed changed after " << change << " us";
    EXPECT_LT(real, 1000000);
}

TEST_F(ClockWaits, RestAndWaitEndFalseOnTheirAbortEvent)
{
    VELDEvent abort;
    std::thread stop = Later(20000, [&] { abort.Set(); });
    EXPECT_FALSE(VELDModuleWaits::Rest(module.owner, 5000000, &abort));
    stop.join();
    EXPECT_FALSE(VELDModuleWaits::Wait(module.owner, VELD::CurrentTime(true, true) + 5000000, &abort));
}

TEST_F(ClockWaits, WaitForATimestamp)
{
    VELDTimestamp target = VELD::CurrentTime(true, true) + 30000;
    long real = Elapsed([&] { EXPECT_TRUE(VELDModuleWaits::Wait(module.owner, target, nullptr)); });
    EXPECT_GE(real, 28000);
    EXPECT_GE(VELD::CurrentTime(true, true), target);
    // A timestamp in the past: at once.
    real = Elapsed([&] { EXPECT_TRUE(VELDModuleWaits::Wait(module.owner, target - 1000000, nullptr)); });
    EXPECT_LT(real, 500000);

    // Outside a module, with a cancel event, and across a pause.
    VELDEvent cancel;
    bool changed = true;
    target = VELD::CurrentTime(true, true) + 20000;
    EXPECT_EQ(VELD::WaitForTimestamp(target, &cancel, &changed), 1);
    EXPECT_FALSE(changed);
    VELD::Pause();
    std::thread play = Later(30000, [] { VELD::Play(); });
    target = VELD::CurrentTime(true, true) + 10000;
    EXPECT_EQ(VELD::WaitForTimestamp(target, &cancel, &changed), 1);
    play.join();
    EXPECT_TRUE(changed);
    VELDEvent* cancels[2] = {&never, &cancel};
    cancel.Set();
    int cancelled = -1;
    EXPECT_EQ(VELD::WaitForTimestamp(VELD::CurrentTime(true, true) + 5000000, 2, cancels, &cancelled, &changed), 0);
    EXPECT_EQ(cancelled, 1);
    EXPECT_THROW(VELD::WaitForTimestamp(0, -1, nullptr, &cancelled, &changed), int);
    EXPECT_TRUE(engine.GetConsole().Contains("VELD::WaitForTimestamp [line:751] [nbCancelEvents:-1] < 0"));

    // The module's many-event form gives the index in the caller's array.
    VELDEvent* mine[2] = {&never, &cancel};
    EXPECT_EQ(VELDModuleWaits::WaitForTimestamp(module.owner, VELD::CurrentTime(true, true) + 5000000, 2, mine,
                                                &cancelled, &changed),
              0);
    EXPECT_EQ(cancelled, 1);
}

TEST_F(ClockWaits, TooManyEventsAreRefused)
{
    std::vector<VELDEvent> events(256);
    std::vector<VELDEvent*> list;
    for (VELDEvent& e : events) list.push_back(&e);
    list[0]->Set();
    EXPECT_EQ(VELDModuleWaits::Wait4Events(module.owner, 254, list.data(), 1000, true), 0);
    EXPECT_THROW(VELDModuleWaits::Wait4Events(module.owner, 255, list.data(), 1000, true), int);
    EXPECT_TRUE(engine.GetConsole().Contains("Wait4Events can't wait for more than 254 events simultaneously."));
    EXPECT_EQ(VELDModuleWaits::MsgWait4Events(module.owner, 255, list.data(), 1000), 0);
    EXPECT_THROW(VELDModuleWaits::MsgWait4Events(module.owner, 256, list.data(), 1000), int);
}

// ---------------------------------------------------------------------------
// The clock and its listeners

namespace {

class RecordingListener : public VELDTimeStateListener {
public:
    void CallbackTimeJumped(VELDTimestamp t) override { Record("jump", t); }
    void CallbackTimeSpeedChanged(int speed) override { Record("speed", speed); }
    void CallbackTimePaused(bool paused) override { Record("pause", paused); }
    void Record(const char* what, long value)
    {
        std::lock_guard<std::mutex> lock(mutex);
        news.push_back(std::string(what) + "=" + std::to_string(value));
        threads.push_back(std::this_thread::get_id());
        if (block) {
            blocked = true;
            while (block) std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }
    std::mutex mutex;
    std::vector<std::string> news;
    std::vector<std::thread::id> threads;
    std::atomic<bool> block{false}, blocked{false};
};

class QuietListener : public VELDTimeStateListener {
public:
    QuietListener() : VELDTimeStateListener(0) {}
    void CallbackTimeJumped(VELDTimestamp) override { ++calls; }
    void CallbackTimeSpeedChanged(int) override { ++calls; }
    void CallbackTimePaused(bool) override { ++calls; }
    std::atomic<int> calls{0};
};

// Counts what the base class calls through its virtual operations.
class TestClock : public VELDBaseClock {
public:
    explicit TestClock(const char* name) : VELDBaseClock(name) {}
    void Register() override { ++registrations; VELDBaseClock::Register(); }
    void Unregister() override { ++unregistrations; VELDBaseClock::Unregister(); }
    VELDTimestamp ClockCurrentTime() override { return 0; }
    void ClockSetCurrentTime(VELDTimestamp) override {}
    int ClockSpeed() override { return 1000; }
    void ClockSetSpeed(int) override {}
    int registrations = 0, unregistrations = 0;
};

}  // namespace

TEST_F(ClockWaits, TheClockStartsOnTheMonotonicClockAndFollowsChanges)
{
    EXPECT_LT(std::labs(VELD::CurrentTime(true, true) - Now()), 2000);
    VELD::SetCurrentTime(5000000);
    EXPECT_GE(VELD::CurrentTime(true, true), 5000000);
    EXPECT_LT(VELD::CurrentTime(true, true), 6000000);
    VELD::SetTimeSpeed(0);
    const VELDTimestamp frozen = VELD::CurrentTime(true, true);
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    EXPECT_EQ(VELD::CurrentTime(true, true), frozen);
    EXPECT_EQ(VELDPrivate::GetAbsoluteTimeSpeed(), 0);
    VELD::SetTimeSpeed(1000);
    VELD::Pause();
    EXPECT_TRUE(VELD::IsPaused());
    EXPECT_EQ(VELD::TimeState(), VELD::Paused);
    VELD::Play();
    EXPECT_EQ(VELD::TimeState(), VELD::Running);
    // Reading the time under the time-state lock must not take it again.
    VELDPrivate::LockTimeState();
    VELD::CurrentTime(false, false);
    VELD::IsPaused();
    VELDPrivate::GetAbsoluteTimeSpeed();
    VELDPrivate::UnlockTimeState();
}

// A listener whose handshake ends by an exception (its component died) takes
// neither the time thread nor the other listeners with it.
TEST_F(ClockWaits, ListenersHearEveryChangeOnTheTimeThread)
{
    struct Throwing : QuietListener {
        void CallbackTimeSpeedChanged(int) override { ++calls; throw VELD::ModuleDied; }
    } dying;
    dying.Register();
    RecordingListener listener;
    VELD::SetTimeSpeed(2000);
    VELD::SetCurrentTime(123);
    VELD::Pause();
    VELD::Play();
    engine.Clock().Flush();
    EXPECT_EQ(dying.calls, 4);
    {
        std::lock_guard<std::mutex> lock(listener.mutex);
        EXPECT_EQ(listener.news, (std::vector<std::string>{"speed=2000", "jump=123", "pause=1", "pause=0"}));
        for (std::thread::id id : listener.threads) EXPECT_NE(id, std::this_thread::get_id());
    }
    // A listener that blocks holds up neither the change nor the clock.
    listener.block = true;
    VELD::SetTimeSpeed(1000);
    while (!listener.blocked) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    EXPECT_LT(Elapsed([] {
                  VELD::SetTimeSpeed(500);
                  VELD::CurrentTime(true, true);
              }),
              500000);
    listener.block = false;
    engine.Clock().Flush();
}

TEST_F(ClockWaits, ListenersAndClocksRegisterAndUnregister)
{
    {
        QuietListener quiet;  // never registered: its destructor's unregister is accepted
        VELD::SetTimeSpeed(800);
        engine.Clock().Flush();
        EXPECT_EQ(quiet.calls, 0);
        quiet.Register();
        VELD::SetTimeSpeed(900);
        engine.Clock().Flush();
        EXPECT_EQ(quiet.calls, 1);
    }
    VELD::SetTimeSpeed(1000);
    engine.Clock().Flush();

    TestClock a("a"), b(nullptr);
    EXPECT_STREQ(b.GetClockName(), "");
    EXPECT_NE(a.GetClockID(), 0);
    EXPECT_NE(b.GetClockID(), 0);
    EXPECT_NE(a.GetClockID(), b.GetClockID());
    a.RenameClock("renamed");
    EXPECT_EQ(std::make_pair(a.registrations, a.unregistrations), std::make_pair(1, 1));
    a.SetAbsoluteTimeSpeed(1500);  // through the kernel to the engine's clock
    EXPECT_EQ(a.GetAbsoluteTimeSpeed(), 1500);
}
