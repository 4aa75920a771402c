// The FIFO of an output under scripted interleavings: what each reader type
// gets and skips, when the writer overwrites, stalls or fails, what the
// counting queries say, and the host's registration of readers by number.
#include <atomic>
#include <chrono>
#include <thread>
#include <tuple>

#include "output_fixture.h"
#include "scratch.h"
#include "veld.h"

namespace {

using veldor::FifoReaders;
using veldtest::Eventually;
typedef std::vector<long> Values;

class Fifo : public OutputTest {
protected:
    ~Fifo() override
    {
        for (std::thread& t : threads)
            if (t.joinable()) t.join();
    }

    // A writer held where it should not be fails the test in seconds, with
    // the value it was about to write, rather than hanging it.
    VELDOutputImplementation& Make(int fifoSize, int subsampling = 1)
    {
        OutputTest::Make(fifoSize, subsampling).monitor->writeTimeout = 5000000;
        return *output;
    }
    void Write(long value, VELDOutputImplementation* to = nullptr)
    {
        VELDOutputImplementation& out = to ? *to : *output;
        VELDIOElt* element = nullptr;
        try {
            element = VELDOutputWriting::StartWriting(module.owner, out);
        } catch (int) {
        }
        ASSERT_TRUE(element) << "the writer was held at " << value << ": " << module.LastError();
        *element->Integer64(0) = value;
        VELDOutputWriting::StopWriting(module.owner, element, false);
    }
    void Write(long from, long to)
    {
        for (long v = from; v <= to; ++v) Write(v);
    }
    // Writes on a thread of its own, which may block; `written` tells when
    // it is done.
    void WriteOnThread(long value, std::atomic<bool>& written)
    {
        threads.emplace_back([this, value, &written] {
            Write(value);
            written = true;
        });
    }
    // The writer is still blocked a while later.
    void ExpectBlocked(const std::atomic<bool>& written)
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        EXPECT_FALSE(written);
    }
    // A ring of two holding 1 and 2, with a plain and a never-skipping
    // reader that have read nothing.
    void PlainAndNeverSkipping(int& plain, int& never)
    {
        Make(2);
        plain = Reader(VELD::FifoReader);
        never = Reader(VELD::NeverSkippingReader);
        Write(1, 2);
    }
    long Value(VELDListIterator slot) { return *F()[slot].Integer64(0); }
    // What the reader gets at once, released again; -1 when it would wait.
    long ReadNow(int reader)
    {
        VELDListIterator slot = TryRead(F(), reader);
        if (!slot.ptr) return -1;
        long value = Value(slot);
        F().StopReading(reader, slot);
        return value;
    }
    // Everything the reader gets without waiting.
    Values Drain(int reader)
    {
        Values values;
        for (long v = ReadNow(reader); v >= 0; v = ReadNow(reader)) values.push_back(v);
        return values;
    }
    int Overflows() { return output->NbFIFOOverflows(); }
    std::vector<const TestFifo::Slot*> Slots()
    {
        std::vector<const TestFifo::Slot*> slots;
        for (VELDBasicListItem* it = F().ring.First(); it; it = it->successor)
            slots.push_back(&VELDList<TestFifo::Slot>::Value(it));
        return slots;
    }
    // A reader's data as the ring holds it, newest first: -1 for a slot
    // without data.
    Values Ring()
    {
        Values values;
        for (const TestFifo::Slot* slot : Slots())
            values.push_back(VELDFastIOSlot::HasData(slot->state) ? *static_cast<long*>(slot->elt.data) : -1);
        return values;
    }
    std::vector<std::thread> threads;
};

// Reader types

TEST_F(Fifo, ASlowFifoReaderLosesOnlyWhatWasOverwrittenAndEachLossCountsOnce)
{
    Make(4);
    int reader = Reader(VELD::FifoReader);
    Write(1, 4);
    EXPECT_EQ(Overflows(), 0);  // free slots first
    EXPECT_EQ(ReadNow(reader), 1);
    Write(5, 7);  // 5 takes the read slot of 1; 6 and 7 overwrite 2 and 3
    EXPECT_EQ(std::make_tuple(Overflows(), engine.GetNbFifoOverflows()), std::make_tuple(2, 2));
    // All that it had is gone: it goes on with the oldest that remains.
    EXPECT_EQ(Drain(reader), (Values{4, 5, 6, 7}));
    Write(8, 11);
    EXPECT_EQ(Overflows(), 2);
}

TEST_F(Fifo, ANeverSkippingReaderStallsTheWriterAndGetsEverything)
{
    Make(2);
    int reader = Reader(VELD::NeverSkippingReader);
    Write(1, 2);
    std::atomic<bool> written(false);
    WriteOnThread(3, written);
    ExpectBlocked(written);
    // Holding the oldest doesn't help: the writer steps over it to the next,
    // which the reader hasn't had either.
    VELDListIterator held = TryRead(F(), reader);
    ASSERT_TRUE(held.ptr);
    EXPECT_EQ(Value(held), 1);
    ExpectBlocked(written);
    F().StopReading(reader, held);
    EXPECT_TRUE(Eventually([&] { return written.load(); }));
    EXPECT_EQ(Drain(reader), (Values{2, 3}));
    EXPECT_EQ(Overflows(), 0);
}

TEST_F(Fifo, WithNoReaderSlotsAreReusedSilentlyAndAPlainReaderNeverStallsTheWriter)
{
    Make(2);
    Write(1, 10);
    EXPECT_EQ(Overflows(), 0);
    EXPECT_EQ(Ring(), (Values{10, 9}));
    Make(2);
    int reader = Reader(VELD::FifoReader);
    Write(1, 5);  // on this thread: a stall would hang the test
    EXPECT_EQ(Overflows(), 3);
    EXPECT_EQ(Drain(reader), (Values{4, 5}));
}

TEST_F(Fifo, BesideANeverSkippingReaderAPlainOneLosesOnlyWhatTheOtherHasRead)
{
    int plain, never;
    PlainAndNeverSkipping(plain, never);
    EXPECT_EQ(ReadNow(never), 1);
    Write(3);  // the never-skipping reader had 1, the plain one didn't
    EXPECT_EQ(Overflows(), 1);
    std::atomic<bool> written(false);
    WriteOnThread(4, written);  // 2 is still needed
    ExpectBlocked(written);
    EXPECT_EQ(ReadNow(plain), 2);  // the plain reader doesn't release the writer
    ExpectBlocked(written);
    EXPECT_EQ(ReadNow(never), 2);
    EXPECT_TRUE(Eventually([&] { return written.load(); }));
    EXPECT_EQ(Overflows(), 1);  // both had 2
    EXPECT_EQ(Drain(never), (Values{3, 4}));
}

TEST_F(Fifo, AWriterBlockedOnANeverSkippingReaderDoesNotWaitForAPlainOne)
{
    int plain, never;
    PlainAndNeverSkipping(plain, never);
    std::atomic<bool> written(false);
    WriteOnThread(3, written);
    ExpectBlocked(written);
    EXPECT_EQ(ReadNow(never), 1);  // the plain reader hasn't had 1: it is lost
    EXPECT_TRUE(Eventually([&] { return written.load(); }));
    EXPECT_EQ(Overflows(), 1);
    EXPECT_EQ(Drain(plain), (Values{2, 3}));
}

TEST_F(Fifo, ALastOrNextReaderGetsTheNewestAndMarksWhatItSkipped)
{
    Make(4);
    int reader = Reader(VELD::LastOrNextReader);
    EXPECT_EQ(ReadNow(reader), -1);
    Write(1, 3);
    EXPECT_EQ(ReadNow(reader), 3);
    EXPECT_EQ(ReadNow(reader), -1);  // nothing newer: it waits
    // 1 and 2 count as read: reusing their slots loses nothing.
    Write(4, 7);
    EXPECT_EQ(Overflows(), 0);
    EXPECT_EQ(ReadNow(reader), 7);
    Write(8);
    EXPECT_EQ(ReadNow(reader), 8);
}

TEST_F(Fifo, ASamplingReaderGetsTheSameElementUntilANewerOneComes)
{
    Make(3);
    int reader = Reader(VELD::SamplingReader);
    EXPECT_EQ(ReadNow(reader), -1);  // waits only while there is no data at all
    Write(1);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(ReadNow(reader), 1);
    Write(2);
    EXPECT_EQ(ReadNow(reader), 2);
    // It never marks anything read, and so never protects a slot.
    for (const TestFifo::Slot* slot : Slots()) EXPECT_EQ(slot->readMask, 0u);
    Write(3, 6);
    EXPECT_EQ(Overflows(), 0);
    EXPECT_EQ(ReadNow(reader), 6);
}

TEST_F(Fifo, AWait4NextReaderAlwaysWaitsAndThenGetsTheNewest)
{
    Make(3);
    int reader = Reader(VELD::Wait4NextReader);
    Write(1);
    EXPECT_EQ(ReadNow(reader), -1);  // data there, but not new

    std::atomic<long> got(0);
    threads.emplace_back([&] {
        VELDListIterator slot = BlockingRead(F(), reader, nullptr);
        got = Value(slot);
        F().StopReading(reader, slot);
    });
    ASSERT_TRUE(Eventually([&] {
        VELDMutexGuard guard(F().mutex);
        return F().condition->waiting[reader];
    }));
    Write(2);
    EXPECT_TRUE(Eventually([&] { return got.load() == 2; }));
}

TEST_F(Fifo, OutputSubsamplingPublishesEveryThirdAndWakesNobodyForTheOthers)
{
    Make(4, 3);
    int fifo = Reader(VELD::FifoReader);
    int next = Reader(VELD::Wait4NextReader);
    VELDEvent* wake = nullptr;
    VELDEvent* abort = nullptr;
    VELDListIterator slot;
    ASSERT_EQ(F().StartReadingX(next, &wake, &abort, &slot), 0);
    EXPECT_EQ(abort, &module.death);
    Write(1, 2);
    EXPECT_FALSE(wake->IsSet());
    EXPECT_EQ(Ring(), (Values{-1, -1, -1, -1}));  // both went back to Free
    Write(3);
    EXPECT_TRUE(wake->IsSet());
    slot = F().AchieveStartReadingX(next, 0);
    EXPECT_EQ(Value(slot), 3);
    F().StopReading(next, slot);
    Write(4, 9);
    EXPECT_EQ(Drain(fifo), (Values{3, 6, 9}));
}

// The writer at its limits

TEST_F(Fifo, ARingOfOneSlotFailsTheWriterWhileTheReaderHoldsIt)
{
    Make(1);
    int reader = Reader(VELD::FifoReader);
    Write(1);
    VELDListIterator held = TryRead(F(), reader);
    ASSERT_TRUE(held.ptr);
    EXPECT_EQ(F().ring.First(), held.ptr);
    EXPECT_EQ(Thrown([&] { F().StartWriting(nullptr); }), VELD::ErrorException);
    EXPECT_TRUE(Reported("StartWriting has no space where to write"));
    EXPECT_EQ(Overflows(), 1);
    F().StopReading(reader, held);
    Write(2);
    EXPECT_EQ(Drain(reader), (Values{2}));
}

TEST_F(Fifo, TheThirdStartWritingOnARingOfTwoIsFatalAndTheModuleErrs)
{
    Make(2);
    ASSERT_NE(VELDOutputWriting::StartWriting(module.owner, *output), nullptr);
    ASSERT_NE(VELDOutputWriting::StartWriting(module.owner, *output), nullptr);
    EXPECT_EQ(Thrown([&] { VELDOutputWriting::StartWriting(module.owner, *output); }), VELD::ErrorException);
    EXPECT_EQ(module.LastError(), "Failed to start writing on m.o");
    EXPECT_TRUE(module.state & VELD::ErrorState);
}

TEST_F(Fifo, ABlockedWriterLeavesWhenItsModuleDies)
{
    Make(1);
    Reader(VELD::NeverSkippingReader);
    Write(1);  // unread by a never-skipping reader: every writer blocks
    std::atomic<int> thrown(0);
    threads.emplace_back([&] { thrown = Thrown([&] { VELDOutputWriting::StartWriting(module.owner, *output); }); });
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    module.Die();
    EXPECT_TRUE(Eventually([&] { return thrown.load() == VELD::ModuleDied; }));
    EXPECT_EQ(module.LastError(), "");  // a quiet end, not an error
}

TEST_F(Fifo, ABlockedWriterGivesUpOnTheHostsCancelOrItsTimeout)
{
    Make(1);
    int reader = Reader(VELD::NeverSkippingReader);
    Write(1);
    std::atomic<bool> cancelled(false);
    threads.emplace_back([&] { cancelled = !F().StartWriting(nullptr).ptr; });
    EXPECT_TRUE(Eventually([&] {
        F().writeCancelEvent.Set();  // the writer resets it before it waits: set until it is seen
        return cancelled.load();
    }));
    F().writeTimeout = 1000;
    EXPECT_EQ(Thrown([&] { F().StartWriting(nullptr); }), VELD::TimeOut);
    EXPECT_EQ(Drain(reader), (Values{1}));
}

// The readers at their limits

TEST_F(Fifo, StopReadingWithoutStartingIsFatal)
{
    Make(2);
    Reader(VELD::FifoReader);
    int second = Reader(VELD::FifoReader);
    Write(1);
    EXPECT_THROW(F().StopReading(second), int);
    EXPECT_TRUE(Reported("VELDFastIO fatal error : Stop reading without starting (X2)"));
    VELDListIterator slot = TryRead(F(), second);
    F().StopReading(second, slot);
    EXPECT_THROW(F().StopReading(second, slot), int);  // released once only
}

TEST_F(Fifo, AWakeUpThatFindsNothingIsFatalForEachKindOfReader)
{
    Make(1);
    int fifo = Reader(VELD::FifoReader);
    int sampling = Reader(VELD::SamplingReader);
    int next = Reader(VELD::Wait4NextReader);
    VELDEvent* wake;
    VELDEvent* abort;
    VELDListIterator slot;
    // Nothing published: the FIFO and sampling readers wait, and so does the
    // next reader; a wake-up with the writer holding the only slot finds
    // nothing.
    for (int reader : {fifo, sampling, next}) ASSERT_EQ(F().StartReadingX(reader, &wake, &abort, &slot), 0);
    VELDListIterator writing = F().StartWriting(nullptr);
    const std::pair<int, const char*> readers[] = {
        {fifo, "Trouble with a FIFO reader. Couldn't find its data (X1)"},
        {sampling, "Trouble with a sampling reader. Couldn't find its data (X2)"},
        {next, "VELDFastIO monitor has no space where to read (X4)"}};
    for (const auto& [reader, text] : readers) {
        EXPECT_THROW(F().AchieveStartReadingX(reader, 0), int);
        EXPECT_TRUE(Reported(text)) << text;
    }
    F().StopWriting(writing, true);
    // A wait that ended otherwise than by the wake event.
    ASSERT_EQ(F().StartReadingX(fifo, &wake, &abort, &slot), 0);
    EXPECT_EQ(Thrown([&] { F().AchieveStartReadingX(fifo, 1); }), VELD::ModuleDied);
    ASSERT_EQ(F().StartReadingX(fifo, &wake, &abort, &slot), 0);
    EXPECT_EQ(Thrown([&] { F().AchieveStartReadingX(fifo, 7); }), VELD::FatalKernelError);
    EXPECT_TRUE(F().mutex.TryLock());  // every failure released the FIFO
    F().mutex.Release();
}

// Settings and queries

TEST_F(Fifo, SubsamplingRateAndReaderTypeAreCheckedInOrder)
{
    Make(2);
    int fifo = Reader(VELD::FifoReader);
    int sampling = Reader(VELD::SamplingReader);
    EXPECT_THROW(F().SetSubsamplingRate(7, 2), int);
    EXPECT_TRUE(Reported("trying to set the subsampling rate for a reader that has never been registered before."));
    EXPECT_THROW(F().SetSubsamplingRate(sampling, 2), int);
    EXPECT_TRUE(Reported("SetSubsamplingRate works only with FIFO readers."));
    EXPECT_THROW(F().SetSubsamplingRate(fifo, 0), int);
    EXPECT_THROW(F().SetSubsamplingRate(fifo, 257), int);
    EXPECT_EQ(engine.GetConsole().CountContaining(
                  "Output subsampling rate must be an integer in the range between 1 and 256 included.", VELD::Error),
              2u);
    for (int rate : {1, 256}) {
        F().SetSubsamplingRate(fifo, rate);
        EXPECT_EQ(F().readerParam[fifo], rate - 1);
    }
    EXPECT_THROW(F().SetReaderType(9, VELD::NeverSkippingReader), int);
    EXPECT_TRUE(Reported("trying to set the reader type for a reader that has never been registered before."));
    EXPECT_THROW(F().SetReaderType(sampling, VELD::NeverSkippingReader), int);
    EXPECT_TRUE(Reported("SetReaderType works only with FIFO readers."));
    const struct {
        int type;
        VELDUInt32 neverSkipping, lastOrNext;
    } types[] = {{VELD::NeverSkippingReader, 1, 0}, {VELD::LastOrNextReader, 0, 1}, {VELD::FifoReader, 0, 0}};
    for (const auto& t : types) {
        F().SetReaderType(fifo, t.type);
        EXPECT_EQ(std::make_tuple(F().neverSkippingMask, F().lastOrNextMask),
                  std::make_tuple(t.neverSkipping, t.lastOrNext))
            << t.type;
    }
}

TEST_F(Fifo, TheCountingQueriesFollowReadsAndWrites)
{
    Make(3);
    int fifo = Reader(VELD::FifoReader);
    int sampling = Reader(VELD::SamplingReader);
    EXPECT_EQ(std::make_tuple(F().IsFIFOEmpty(), F().IsFIFOFull(), output->NbFreeSlotsInFIFO()),
              std::make_tuple(true, false, 3));
    EXPECT_FALSE(F().DataAvailableInFIFO(fifo) || F().DataAvailableInFIFO(sampling));
    Write(1, 2);
    EXPECT_FALSE(VELDOutputWriting::IsFIFOEmpty(*output));
    EXPECT_EQ(std::make_tuple(F().NbDataAvailableInFIFO(fifo), F().NbDataAvailableInFIFO(sampling),
                              output->NbFreeSlotsInFIFO()),
              std::make_tuple(2, 2, 1));
    EXPECT_EQ(ReadNow(fifo), 1);
    EXPECT_EQ(F().NbDataAvailableInFIFO(fifo), 1);
    EXPECT_TRUE(F().DataAvailableInFIFO(fifo));
    EXPECT_EQ(output->NbFreeSlotsInFIFO(), 2);  // 1 has been read by all FIFO readers
    Write(3);
    EXPECT_FALSE(VELDOutputWriting::IsFIFOFull(*output));  // the tail slot was read
    Write(4);
    EXPECT_TRUE(VELDOutputWriting::IsFIFOFull(*output));   // now 2 would be overwritten
    EXPECT_EQ(Drain(fifo), (Values{2, 3, 4}));
    EXPECT_EQ(std::make_tuple(F().DataAvailableInFIFO(fifo), F().DataAvailableInFIFO(sampling), F().IsFIFOEmpty()),
              std::make_tuple(false, true, true));

    VELDListIterator held = TryRead(F(), sampling);  // a held element keeps it from being empty
    EXPECT_FALSE(F().IsFIFOEmpty());
    F().StopReading(sampling, held);
}

TEST_F(Fifo, ResettingTheSizeDiscardsTheContent)
{
    Make(2);
    int reader = Reader(VELD::FifoReader);
    Write(1);
    F().ResetFifoSize(5);
    EXPECT_EQ(F().ring.Length(), 5);
    EXPECT_EQ(Ring(), (Values{-1, -1, -1, -1, -1}));
    EXPECT_EQ(ReadNow(reader), -1);
    F().ResetFifoSize(0);
    EXPECT_EQ(Thrown([&] { F().StartWriting(nullptr); }), VELD::ErrorException);  // no slot for anyone
}

// The host's registration of readers

TEST_F(Fifo, EachReaderGetsTheLowestFreeNumberAndTheMarksOfItsType)
{
    Make(2);
    const struct {
        int type, subsampling, number, param;  // param: a FIFO reader's subsampling - 1, within 0 to 255
    } readers[] = {{VELD::FifoReader, 3, 0, 2},
                   {VELD::NeverSkippingReader, 1, 1, 0},
                   {VELD::LastOrNextReader, 300, 2, 255},
                   {VELD::Wait4NextReader, 5, 3, VELD::Wait4NextReader},
                   {VELD::SamplingReader, 1, 4, VELD::SamplingReader}};
    for (const auto& r : readers) {
        EXPECT_EQ(Reader(r.type, r.subsampling), r.number);
        EXPECT_EQ(F().readerParam[r.number], r.param);
        EXPECT_NE(F().condition->events[r.number], nullptr);
    }
    EXPECT_EQ(Reader(5), -1);
    EXPECT_EQ(Reader(-1), -1);
    // Registered, FIFO kinds, never-skipping, last-or-next.
    EXPECT_EQ(std::make_tuple(F().registeredMask, F().fifoMask, F().neverSkippingMask, F().lastOrNextMask),
              std::make_tuple(0x1Fu, 0x7u, 0x2u, 0x4u));
    for (int r = 5; r < 32; ++r) EXPECT_EQ(Reader(VELD::SamplingReader), r);
    EXPECT_EQ(Reader(VELD::FifoReader), -1);
}

TEST_F(Fifo, UnregisteringReleasesWhatTheReaderHeldAndTheWriterBlockedOnIt)
{
    int plain, never;
    PlainAndNeverSkipping(plain, never);
    ASSERT_TRUE(TryRead(F(), never).ptr);
    std::atomic<bool> written(false);
    WriteOnThread(3, written);  // steps over the held 1 and blocks on 2
    ExpectBlocked(written);
    FifoReaders::Unregister(F(), never);
    EXPECT_TRUE(Eventually([&] { return written.load(); }));
    EXPECT_EQ(F().registeredMask, 1u << plain);
    EXPECT_EQ(F().neverSkippingMask, 0u);
    for (const TestFifo::Slot* slot : Slots()) {
        EXPECT_EQ(slot->readingMask, 0u);
        EXPECT_NE(slot->state, VELDFastIOSlot::Reading);
    }
    FifoReaders::Unregister(F(), never);  // twice, or a number never given: nothing happens
    FifoReaders::Unregister(F(), 40);
    // The number comes back, and its new reader starts from the oldest
    // element there is, untroubled by what the old one had read.
    EXPECT_EQ(Reader(VELD::FifoReader), never);
    EXPECT_EQ(Drain(never), (Values{2, 3}));
    // Unregistering the last slow reader ends a handshake.
    Write(4);
    std::thread handshake([&] { VELDOutputWriting::Wait4Handshake(module.owner, *output); });
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    FifoReaders::Unregister(F(), plain);
    FifoReaders::Unregister(F(), never);
    handshake.join();
}

TEST_F(Fifo, OverflowsAreCountedForEachOutputAndInTotal)
{
    Make(2);
    std::unique_ptr<VELDOutputImplementation> second = New(2);
    Reader(VELD::FifoReader);
    FifoReaders::Register(*second->monitor, VELD::LastOrNextReader, 1);
    Write(1, 5);
    for (long v = 1; v <= 4; ++v) Write(v, second.get());
    EXPECT_EQ(std::make_tuple(Overflows(), second->NbFIFOOverflows(), VELD::GetNbFifoOverflows()),
              std::make_tuple(3, 2, 5));
    engine.SignalFifoOverflow(nullptr);  // a FIFO of no output counts in the total only
    EXPECT_EQ(engine.GetNbFifoOverflows(), 6);
}

}  // namespace
