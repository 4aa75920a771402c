// One writer and readers of every kind on one output, with random delays on
// every side and thousands of numbered elements. Each reader's sequence is
// checked against what its type allows, and every element against tearing:
// a reader must never see an element that the writer is filling. Then the
// wake-ups, on a ring so small that both sides block all the time.
#include <algorithm>
#include <chrono>
#include <functional>
#include <numeric>
#include <random>
#include <thread>

#include "output_fixture.h"

namespace {

const long kTimestampOffset = 1000000;

// A short pause now and then, different on every thread.
class Jitter {
public:
    explicit Jitter(unsigned seed) : m_random(seed) {}
    void operator()()
    {
        int draw = static_cast<int>(m_random() % 100);
        if (draw < 2)
            std::this_thread::sleep_for(std::chrono::microseconds(50 + draw * 50));
        else if (draw < 20)
            std::this_thread::yield();
    }

private:
    std::minstd_rand m_random;
};

struct ReaderRun {
    int type;
    int number;
    std::vector<long> seen;
    long torn = 0;  // elements whose contents disagreed with their number
};

struct StressCase {
    const char* name;
    std::vector<int> types;  // one reader of each
    int ring;                // slots; 0: one more than there are readers
    long elements;
};

class FifoStress : public OutputTest, public ::testing::WithParamInterface<StressCase> {
protected:
    // Writes 1 to `elements` on a ring of `ring` slots, read by one reader of
    // each of `types`. A writer that is blocked 30 seconds tells which side
    // slept through: a reader through an element, or itself through a freed
    // slot. Readers that wait for what comes next may miss the last element:
    // they are told to stop once the others have it all.
    std::string Run(const std::vector<int>& types, int ring, long elements)
    {
        output.reset(new VELDOutputImplementation("m.o", OutputDefinition(VELD::Integer64, 2, ring), &module.death));
        output->AllocOutputBuffer(2, true);
        TestFifo& fifo = *output->monitor;
        fifo.writeTimeout = 30000000;
        for (int type : types) runs.push_back(ReaderRun{type, veldor::FifoReaders::Register(fifo, type, 1), {}, 0});
        VELDEvent stop;
        std::vector<std::thread> readers;
        for (size_t i = 0; i < runs.size(); ++i)
            readers.emplace_back([&, i] { Read(fifo, runs[i], &stop, 17 + static_cast<unsigned>(i), elements); });

        Jitter jitter(5);
        std::string lost;
        for (long n = 1; n <= elements && lost.empty(); ++n) {
            try {
                VELDIOElt* element = VELDOutputWriting::StartWriting(module.owner, *output, n + kTimestampOffset);
                *element->Integer64(0) = n;
                jitter();
                *element->Integer64(1) = -n;
                VELDOutputWriting::StopWriting(module.owner, element, false);
            } catch (int) {
                bool readerSlept = false;
                for (ReaderRun& run : runs) readerSlept = readerSlept || fifo.DataAvailableInFIFO(run.number);
                lost = "the hand-over stopped at element " + std::to_string(n) + " (" + module.LastError() + "): " +
                       (readerSlept ? "a reader slept through an element" : "the writer slept through a freed slot");
            }
        }
        for (ReaderRun& run : runs)
            if (lost.empty() && run.type != VELD::Wait4NextReader) WaitForLast(run, elements);
        stop.Set();
        for (std::thread& t : readers) t.join();
        return lost;
    }

    void Read(TestFifo& fifo, ReaderRun& run, VELDEvent* stop, unsigned seed, long elements)
    {
        Jitter jitter(seed);
        for (;;) {
            VELDListIterator slot = BlockingRead(fifo, run.number, stop);
            if (!slot.ptr) return;
            VELDIOEltImplementation& element = fifo[slot];
            long n = *element.Integer64(0);
            jitter();  // hold the element a while: the writer must not touch it
            if (*element.Integer64(1) != -n || element.Timestamp() != n + kTimestampOffset) ++run.torn;
            fifo.StopReading(run.number, slot);
            {
                std::lock_guard<std::mutex> lock(m_seenMutex);
                run.seen.push_back(n);
            }
            if (n == elements && run.type != VELD::Wait4NextReader) return;
        }
    }

    void WaitForLast(ReaderRun& run, long elements)
    {
        for (int i = 0; i < 20000; ++i) {
            {
                std::lock_guard<std::mutex> lock(m_seenMutex);
                if (!run.seen.empty() && run.seen.back() == elements) return;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        ADD_FAILURE() << "reader of type " << run.type << " never got the last element";
    }

    std::vector<ReaderRun> runs;
    std::mutex m_seenMutex;
};

TEST_P(FifoStress, EachReaderGetsWhatItsTypeAllowsAndNoSideSleepsThroughAWakeUp)
{
    const StressCase& c = GetParam();
    const long n = c.elements;
    EXPECT_EQ(Run(c.types, c.ring ? c.ring : static_cast<int>(c.types.size()) + 1, n), "");
    const long overflows = output->NbFIFOOverflows();
    EXPECT_EQ(engine.GetNbFifoOverflows(), overflows);
    std::vector<long> all(static_cast<size_t>(n));
    std::iota(all.begin(), all.end(), 1);
    for (const ReaderRun& run : runs) {
        SCOPED_TRACE("reader type " + std::to_string(run.type));
        EXPECT_EQ(run.torn, 0);
        ASSERT_FALSE(run.seen.empty());
        const bool strictlyIncreasing =
            std::adjacent_find(run.seen.begin(), run.seen.end(), std::greater_equal<long>()) == run.seen.end();
        switch (run.type) {
        case VELD::NeverSkippingReader:
            EXPECT_TRUE(run.seen == all) << run.seen.size() << " elements seen";
            break;
        case VELD::SamplingReader:
            EXPECT_TRUE(std::is_sorted(run.seen.begin(), run.seen.end()));
            EXPECT_EQ(run.seen.back(), n);
            break;
        default:
            EXPECT_TRUE(strictlyIncreasing);
            // Every element that a FIFO reader missed was overwritten, and counted.
            EXPECT_TRUE(run.type != VELD::FifoReader || n - static_cast<long>(run.seen.size()) <= overflows)
                << run.seen.size() << " seen, " << overflows << " overflows";
            EXPECT_TRUE(run.type == VELD::Wait4NextReader || run.seen.back() == n) << run.seen.back();
        }
    }
}

INSTANTIATE_TEST_SUITE_P(
    Readers, FifoStress,
    ::testing::Values(
        // All five kinds: the never-skipping reader paces the writer.
        StressCase{"AllKinds",
                   {VELD::FifoReader, VELD::NeverSkippingReader, VELD::LastOrNextReader, VELD::SamplingReader,
                    VELD::Wait4NextReader},
                   8, 3000},
        // Nobody holds the writer back: plain readers lose elements.
        StressCase{"NoneHoldsTheWriter",
                   {VELD::FifoReader, VELD::FifoReader, VELD::LastOrNextReader, VELD::SamplingReader,
                    VELD::Wait4NextReader},
                   8, 3000},
        StressCase{"TwoNeverSkipping",
                   {VELD::NeverSkippingReader, VELD::NeverSkippingReader, VELD::FifoReader, VELD::LastOrNextReader},
                   8, 3000},
        // Wake-ups. On a ring with one slot more than it has readers, each of
        // them never-skipping or skipping, nearly every element makes a reader
        // block just as the writer publishes, and the writer block just as a
        // reader releases a slot. A wake-up lost on either side stops the
        // hand-over for good.
        StressCase{"WakeUpsOfOne", {VELD::NeverSkippingReader}, 0, 20000},
        StressCase{"WakeUpsOfTwo", {VELD::NeverSkippingReader, VELD::NeverSkippingReader}, 0, 20000},
        // A last-or-next reader frees slots by skipping them.
        StressCase{"WakeUpsOfASkippingReader", {VELD::NeverSkippingReader, VELD::LastOrNextReader}, 0, 20000}),
    [](const ::testing::TestParamInfo<StressCase>& info) { return std::string(info.param.name); });

}  // namespace
