// The module's half of writing: timestamps, the periodic smoothing, the size
// check, discarding, the sequential readers run on the writer's thread, the
// handshake, and a steady state that allocates nothing.
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <new>
#include <thread>
#include <tuple>

#include "output_fixture.h"

// Counts the allocations of the thread that asks for it.
namespace {
std::atomic<long> g_allocations(0);
thread_local bool g_countAllocations = false;
}  // namespace

void* operator new(std::size_t bytes)
{
    if (g_countAllocations) ++g_allocations;
    void* block = std::malloc(bytes ? bytes : 1);
    if (!block) throw std::bad_alloc();
    return block;
}
// Not inlined: the compiler would otherwise see a new paired with a free.
__attribute__((noinline)) void operator delete(void* block) noexcept { std::free(block); }
__attribute__((noinline)) void operator delete(void* block, std::size_t) noexcept { std::free(block); }

namespace {

using veldor::FifoReaders;

class Writing : public OutputTest {
protected:
    VELDIOElt* Start() { return VELDOutputWriting::StartWriting(module.owner, *output); }
    void Stop(VELDIOElt* element, bool discard = false)
    {
        VELDOutputWriting::StopWriting(module.owner, element, discard);
    }
    // Publishes one element with the given stamps (0: left to StopWriting)
    // and returns the timestamp that was published.
    VELDTimestamp Publish(VELDTimestamp timestamp, VELDTimestamp timeOfIssue = 0)
    {
        VELDIOElt* element = VELDOutputWriting::StartWriting(module.owner, *output, timestamp);
        element->TimeOfIssue() = timeOfIssue;
        Stop(element);
        return element->Timestamp();
    }
    static std::tuple<VELDTimestamp, VELDTimestamp> Stamps(VELDIOElt* e) { return {e->Timestamp(), e->TimeOfIssue()}; }
    // Sets the engine's clock still at `time`.
    void FreezeClock(VELDTimestamp time)
    {
        engine.Clock().SetSpeed(0);
        engine.Clock().SetTime(time);
    }
};

// Timestamps

TEST_F(Writing, TimestampsDefaultToTheTimeOfIssueWhichDefaultsToNow)
{
    Make(4);
    FreezeClock(5000000);
    VELDIOElt* element = Start();
    EXPECT_EQ(Stamps(element), std::make_tuple(0, 0));
    Stop(element);
    EXPECT_EQ(Stamps(element), std::make_tuple(5000000, 5000000));
    EXPECT_EQ(Publish(0, 123), 123);  // a time of issue that the component set
    EXPECT_EQ(Publish(777), 777);
    EXPECT_EQ(Publish(0), 5000000);  // 0 is no timestamp

    // A reused slot starts clean: nothing of its last use is published again.
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(Stamps(element = Start()), std::make_tuple(0, 0));
        Stop(element);
    }
}

// The least-squares line through `samples` (oldest first), at the newest.
VELDTimestamp FittedAtNewest(const std::vector<VELDTimestamp>& samples)
{
    const long double n = samples.size();
    long double sx = 0, sy = 0, sxx = 0, sxy = 0;
    for (size_t k = 0; k < samples.size(); ++k) {
        sx += k;
        sy += samples[k];
        sxx += static_cast<long double>(k) * k;
        sxy += k * static_cast<long double>(samples[k]);
    }
    const long double slope = (n * sxy - sx * sy) / (n * sxx - sx * sx);
    const long double intercept = (sy - slope * sx) / n;
    return static_cast<VELDTimestamp>(intercept + slope * (n - 1));
}

TEST_F(Writing, APeriodicOutputSmoothsItsTimestampsOnceItKnowsThirty)
{
    Make(4);
    output->periodic = true;
    std::vector<VELDTimestamp> raw;
    for (int k = 0; k < 40; ++k) raw.push_back(1000000 + 10000 * k + ((k * 37) % 11 - 5) * 300);
    for (int k = 0; k < 29; ++k) EXPECT_EQ(Publish(raw[k]), raw[k]) << k;
    for (int k = 29; k < 40; ++k) {
        std::vector<VELDTimestamp> window(raw.begin() + (k - 29), raw.begin() + k + 1);
        VELDTimestamp smoothed = Publish(raw[k]);
        EXPECT_NEAR(smoothed, FittedAtNewest(window), 1) << k;
        EXPECT_NE(smoothed, raw[k]) << k;
    }
}

TEST_F(Writing, APeriodicOutputNeverRunsBackwards)
{
    Make(4);
    output->periodic = true;
    VELDTimestamp last = 0;
    for (int k = 0; k < 30; ++k) last = Publish(1000000 + 1000 * k);
    EXPECT_EQ(last, 1029000);  // a regular source keeps its timestamps
    // A sample far behind pulls the line below the last one: the time of
    // issue stands instead.
    EXPECT_EQ(Publish(last - 500000, last + 10), last + 10);
    // And so it does when it is behind too.
    EXPECT_EQ(Publish(last - 500000, last - 7), last - 7);
    Make(4);  // an output that isn't periodic takes what it is given
    EXPECT_EQ(Publish(100), 100);
    EXPECT_EQ(Publish(50), 50);
}

// Failures and discarding

TEST_F(Writing, AWriterOnADyingModuleLeavesAtOnce)
{
    Make(2);
    module.Die();
    EXPECT_EQ(Thrown([&] { Start(); }), VELD::ModuleDied);
    EXPECT_EQ(F().NbFreeSlotsInFIFO(), 2);  // nothing was taken
}

TEST_F(Writing, AnOverrunElementIsAnErrorAndIsNotPublished)
{
    Make(2);
    int reader = FifoReaders::Register(F(), VELD::FifoReader, 1);
    VELDIOElt* element = Start();
    element->VectorSize() = 3;
    element->BufferSize() = 2;
    EXPECT_EQ(Thrown([&] { Stop(element); }), VELD::ErrorException);
    EXPECT_EQ(module.LastError(), "Buffer overflow detected: VectorSize(3) > BufferSize(2)");
    EXPECT_TRUE(module.state & VELD::ErrorState);
    EXPECT_FALSE(TryRead(F(), reader).ptr);
    EXPECT_EQ(VELDList<TestFifo::Slot>::Value(TestFifo::SlotOf(static_cast<VELDIOEltImplementation*>(element)->fastElt))
                  .state,
              VELDFastIOSlot::Writing);
}

TEST_F(Writing, ADiscardedElementWakesNobodyButFeedsTheHistory)
{
    Make(2);
    output->periodic = true;
    int next = FifoReaders::Register(F(), VELD::Wait4NextReader, 1);
    VELDEvent* wake;
    VELDEvent* abort;
    VELDListIterator slot;
    ASSERT_EQ(F().StartReadingX(next, &wake, &abort, &slot), 0);
    VELDIOElt* element = VELDOutputWriting::StartWriting(module.owner, *output, 4242);
    Stop(element, true);
    EXPECT_FALSE(wake->IsSet());
    EXPECT_EQ(F().NbFreeSlotsInFIFO(), 2);
    EXPECT_EQ(output->timestampHistory[0], 4242);
    EXPECT_EQ(output->timestampIndex, 1);
    F().condition->AbortWaitX(next);
    F().mutex.Release();
}

// Sequential readers

// A module that reads on the writer's thread.
struct SequentialModule {
    std::atomic<int> state{VELD::LivingState};
    bool threaded = false;
    int reader = -1;
    TestFifo* fifo = nullptr;
    std::vector<long> seen;
    int calls = 0;

    VELDSequentialReader Hook(VELDInput* input)
    {
        VELDSequentialReader hook;
        hook.input = input;
        hook.module = this;
        hook.state = &state;
        hook.isThreaded = [](void* m) { return static_cast<SequentialModule*>(m)->threaded; };
        hook.sequentialCore = [](void* m, VELDInput*) {
            SequentialModule* module = static_cast<SequentialModule*>(m);
            ++module->calls;
            for (VELDListIterator slot = TryRead(*module->fifo, module->reader); slot.ptr;
                 slot = TryRead(*module->fifo, module->reader)) {
                module->seen.push_back(*(*module->fifo)[slot].Integer64(0));
                module->fifo->StopReading(module->reader, slot);
            }
            if (module->seen.size() == 3) module->state |= VELD::ErrorState;
        };
        hook.name = [](void*) { return "seq"; };
        return hook;
    }
};

TEST_F(Writing, SequentialModulesReadOnTheWritersThreadAfterEachWrite)
{
    Make(4, 2);
    SequentialModule sequential, threaded;
    threaded.threaded = true;
    for (SequentialModule* m : {&sequential, &threaded}) {
        m->fifo = &F();
        m->reader = FifoReaders::Register(F(), VELD::FifoReader, 1);
    }
    output->AddSequentialInput(sequential.Hook(reinterpret_cast<VELDInput*>(1)));
    output->AddSequentialInput(threaded.Hook(reinterpret_cast<VELDInput*>(2)));

    for (long v = 1; v <= 6; ++v) {
        VELDIOElt* element = Start();
        *element->Integer64(0) = v;
        Stop(element);
    }
    // Called after every write, published or dropped by subsampling; a
    // threaded module reads on its own thread and is left alone.
    EXPECT_EQ(sequential.calls, 6);
    EXPECT_EQ(sequential.seen, (std::vector<long>{2, 4, 6}));
    EXPECT_EQ(threaded.calls, 0);
    // The third element put the module in error: the kernel heard of it once.
    EXPECT_EQ(engine.changes,
              (std::vector<std::pair<std::string, int>>{{"seq", VELD::LivingState | VELD::ErrorState}}));
    Stop(Start(), true);  // a discarded element calls nobody
    EXPECT_EQ(sequential.calls, 6);
    EXPECT_TRUE(output->RemoveSequentialInput(reinterpret_cast<VELDInput*>(1)));
    EXPECT_FALSE(output->RemoveSequentialInput(reinterpret_cast<VELDInput*>(1)));
    Stop(Start());
    EXPECT_EQ(sequential.calls, 6);
}

// Pacing and steady state

TEST_F(Writing, AHandshakeWaitsForTheFifoReadersOrTheModulesDeath)
{
    Make(4);
    int reader = FifoReaders::Register(F(), VELD::FifoReader, 1);
    Publish(1);
    std::atomic<bool> shaken(false);
    std::thread writer([&] {
        VELDOutputWriting::Wait4Handshake(module.owner, *output);
        shaken = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_FALSE(shaken);
    VELDListIterator slot = TryRead(F(), reader);
    ASSERT_TRUE(slot.ptr);
    F().StopReading(reader, slot);
    writer.join();
    EXPECT_TRUE(shaken);
    Publish(2);
    std::atomic<int> thrown(0);
    std::thread dying([&] { thrown = Thrown([&] { VELDOutputWriting::Wait4Handshake(module.owner, *output); }); });
    module.Die();
    dying.join();
    EXPECT_EQ(thrown, VELD::ModuleDied);
}

TEST_F(Writing, TheSteadyStateAllocatesNothing)
{
    Make(4);
    int fifo = FifoReaders::Register(F(), VELD::FifoReader, 1);
    int sampling = FifoReaders::Register(F(), VELD::SamplingReader, 1);
    output->periodic = true;
    auto cycle = [&](long v) {
        VELDIOElt* element = VELDOutputWriting::StartWriting(module.owner, *output, 1000 + v);
        *element->Integer64(0) = v;
        Stop(element);
        for (int reader : {fifo, sampling}) {
            VELDListIterator slot = TryRead(F(), reader);
            ASSERT_TRUE(slot.ptr);
            F().StopReading(reader, slot);
        }
    };
    for (long v = 0; v < 50; ++v) cycle(v);  // the first multi-event waits may set up per-thread records
    g_allocations = 0;
    g_countAllocations = true;
    for (long v = 50; v < 1050; ++v) cycle(v);
    g_countAllocations = false;
    EXPECT_EQ(g_allocations, 0);
}

}  // namespace
