// One writer and readers of every kind on one output, with random delays on
// every side and thousands of numbered elements. Each reader's sequence is
// checked against what its type allows, and every element against tearing:
// a reader must never see an element that the writer is filling. Then the
// wake-ups, on a ring so small that both sides block all the time.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "Engine.h"
#include "fifo_reading.h"
#include "test_module.h"
#include "test_output.h"
#include "veld_output_impl.h"
#include "veld_output_writing.h"

namespace {

const long kElements = 3000;
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

class FifoStress : public ::testing::TestWithParam<std::vector<int>> {
protected:
    FifoStress() : engine(Quiet()) {}

    void Run(const std::vector<int>& types)
    {
        output.reset(new VELDOutputImplementation("m.o", OutputDefinition(VELD::Integer64, 2, 8), &module.death));
        output->AllocOutputBuffer(2, true);
        TestFifo& fifo = *output->monitor;
        for (int type : types) runs.push_back(ReaderRun{type, veldor::FifoReaders::Register(fifo, type, 1), {}, 0});

        VELDEvent stop;
        std::vector<std::thread> readers;
        for (size_t i = 0; i < runs.size(); ++i)
            readers.emplace_back([this, &fifo, &stop, i] { Read(fifo, runs[i], &stop, 17 + static_cast<unsigned>(i)); });

        Jitter jitter(5);
        for (long n = 1; n <= kElements; ++n) {
            VELDIOElt* element = VELDOutputWriting::StartWriting(module.owner, *output, n + kTimestampOffset);
            *element->Integer64(0) = n;
            jitter();
            *element->Integer64(1) = -n;
            VELDOutputWriting::StopWriting(module.owner, element, false);
        }
        // Readers that wait for what comes next may have missed the last
        // one: they are told to stop once the others have it all.
        for (ReaderRun& run : runs)
            if (run.type != VELD::Wait4NextReader) WaitForLast(run);
        stop.Set();
        for (std::thread& t : readers) t.join();
    }

    void Read(TestFifo& fifo, ReaderRun& run, VELDEvent* stop, unsigned seed)
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
            if (n == kElements && run.type != VELD::Wait4NextReader) return;
        }
    }

    void WaitForLast(ReaderRun& run)
    {
        for (int i = 0; i < 20000; ++i) {
            {
                std::lock_guard<std::mutex> lock(m_seenMutex);
                if (!run.seen.empty() && run.seen.back() == kElements) return;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        ADD_FAILURE() << "reader of type " << run.type << " never got the last element";
    }

    veldor::Engine engine;
    TestModule module;
    std::unique_ptr<VELDOutputImplementation> output;
    std::vector<ReaderRun> runs;
    std::mutex m_seenMutex;
};

bool Increasing(const std::vector<long>& v, bool strictly)
{
    for (size_t i = 1; i < v.size(); ++i)
        if (strictly ? v[i] <= v[i - 1] : v[i] < v[i - 1]) return false;
    return true;
}

TEST_P(FifoStress, EachReaderGetsWhatItsTypeAllows)
{
    Run(GetParam());
    long overflows = output->NbFIFOOverflows();
    EXPECT_EQ(engine.GetNbFifoOverflows(), overflows);
    for (const ReaderRun& run : runs) {
        SCOPED_TRACE("reader type " + std::to_string(run.type));
        EXPECT_EQ(run.torn, 0);
        ASSERT_FALSE(run.seen.empty());
        switch (run.type) {
        case VELD::NeverSkippingReader: {
            std::vector<long> all(kElements);
            for (long n = 0; n < kElements; ++n) all[n] = n + 1;
            EXPECT_EQ(run.seen, all);
            break;
        }
        case VELD::FifoReader:
            EXPECT_TRUE(Increasing(run.seen, true));
            // Every element that it missed was overwritten, and counted.
            EXPECT_LE(kElements - static_cast<long>(run.seen.size()), overflows);
            EXPECT_EQ(run.seen.back(), kElements);
            break;
        case VELD::LastOrNextReader:
        case VELD::Wait4NextReader:
            EXPECT_TRUE(Increasing(run.seen, true));
            break;
        case VELD::SamplingReader:
            EXPECT_TRUE(Increasing(run.seen, false));
            EXPECT_EQ(run.seen.back(), kElements);
            break;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(
    Readers, FifoStress,
    ::testing::Values(
        // All five kinds: the never-skipping reader paces the writer.
        std::vector<int>{VELD::FifoReader, VELD::NeverSkippingReader, VELD::LastOrNextReader, VELD::SamplingReader,
                         VELD::Wait4NextReader},
        // Nobody holds the writer back: plain readers lose elements.
        std::vector<int>{VELD::FifoReader, VELD::FifoReader, VELD::LastOrNextReader, VELD::SamplingReader,
                         VELD::Wait4NextReader},
        // Two never-skipping readers and one of each FIFO kind.
        std::vector<int>{VELD::NeverSkippingReader, VELD::NeverSkippingReader, VELD::FifoReader,
                         VELD::LastOrNextReader}));

// ---------------------------------------------------------------------------
// Wake-ups. On a ring with one slot more than it has readers, each of them
// never-skipping or skipping, nearly every element makes a reader block
// just as the writer publishes, and the writer block just as a reader
// releases a slot. A wake-up lost on either side stops the hand-over for
// good: the writer, which waits at most 30 seconds, then tells which side
// slept through.

class WakeUps : public ::testing::TestWithParam<std::vector<int>> {};

TEST_P(WakeUps, NoSideSleepsThroughAnElementOrAFreedSlot)
{
    const long kHandOvers = 20000;
    veldor::Engine engine(Quiet());
    TestModule module;
    const int ring = static_cast<int>(GetParam().size()) + 1;  // a slot for the writer, whatever readers hold
    VELDOutputImplementation output("m.o", OutputDefinition(VELD::Integer64, 1, ring), &module.death);
    output.AllocOutputBuffer(1, true);
    TestFifo& fifo = *output.monitor;
    fifo.writeTimeout = 30000000;
    std::vector<int> numbers;
    for (int type : GetParam()) numbers.push_back(veldor::FifoReaders::Register(fifo, type, 1));

    VELDEvent stop;
    std::vector<std::vector<long>> seen(numbers.size());
    std::vector<std::thread> readers;
    for (size_t i = 0; i < numbers.size(); ++i) {
        readers.emplace_back([&, i] {
            Jitter jitter(31 + static_cast<unsigned>(i));
            for (long n = 0; n < kHandOvers;) {
                VELDListIterator slot = BlockingRead(fifo, numbers[i], &stop);
                if (!slot.ptr) return;
                n = *fifo[slot].Integer64(0);
                jitter();
                fifo.StopReading(numbers[i], slot);
                seen[i].push_back(n);
            }
        });
    }
    Jitter jitter(3);
    std::string lost;
    for (long n = 1; n <= kHandOvers && lost.empty(); ++n) {
        try {
            VELDIOElt* element = VELDOutputWriting::StartWriting(module.owner, output);
            *element->Integer64(0) = n;
            jitter();
            VELDOutputWriting::StopWriting(module.owner, element, false);
        } catch (int) {
            lost = "the hand-over stopped at element " + std::to_string(n) + " (" + module.LastError() + "): ";
            bool readerSlept = false;
            for (int reader : numbers) readerSlept = readerSlept || fifo.DataAvailableInFIFO(reader);
            lost += readerSlept ? "a reader slept through an element" : "the writer slept through a freed slot";
        }
    }
    stop.Set();
    for (std::thread& t : readers) t.join();
    EXPECT_EQ(lost, "");
    for (size_t i = 0; i < numbers.size(); ++i) {
        SCOPED_TRACE("reader " + std::to_string(i));
        if (GetParam()[i] == VELD::NeverSkippingReader) {
            ASSERT_EQ(seen[i].size(), static_cast<size_t>(kHandOvers));
            for (long n = 0; n < kHandOvers; ++n) ASSERT_EQ(seen[i][n], n + 1);
        } else {
            EXPECT_TRUE(Increasing(seen[i], true));
            EXPECT_EQ(seen[i].back(), kHandOvers);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(
    Readers, WakeUps,
    ::testing::Values(std::vector<int>{VELD::NeverSkippingReader},
                      std::vector<int>{VELD::NeverSkippingReader, VELD::NeverSkippingReader},
                      // A last-or-next reader frees slots by skipping them.
                      std::vector<int>{VELD::NeverSkippingReader, VELD::LastOrNextReader}));

}  // namespace
