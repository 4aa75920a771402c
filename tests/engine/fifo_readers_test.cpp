// The host's half of the FIFO: readers registered and unregistered by
// number, and the overflows counted for each output and in total.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>

#include "Engine.h"
#include "fifo_reading.h"
#include "test_module.h"
#include "test_output.h"
#include "veld.h"
#include "veld_output_impl.h"
#include "veld_output_writing.h"

namespace {

using veldor::FifoReaders;

class Readers : public ::testing::Test {
protected:
    Readers() : engine(Quiet()) {}

    std::unique_ptr<VELDOutputImplementation> Make(int fifoSize)
    {
        std::unique_ptr<VELDOutputImplementation> output(
            new VELDOutputImplementation("m.o", OutputDefinition(VELD::Integer64, 1, fifoSize), &module.death));
        output->AllocOutputBuffer(1, true);
        return output;
    }
    void Write(VELDOutputImplementation& output, long value)
    {
        VELDIOElt* element = VELDOutputWriting::StartWriting(module.owner, output);
        *element->Integer64(0) = value;
        VELDOutputWriting::StopWriting(module.owner, element, false);
    }
    long ReadNow(TestFifo& fifo, int reader)
    {
        VELDListIterator slot = TryRead(fifo, reader);
        if (!slot.ptr) return -1;
        long value = *fifo[slot].Integer64(0);
        fifo.StopReading(reader, slot);
        return value;
    }

    veldor::Engine engine;
    TestModule module;
};

TEST_F(Readers, EachReaderGetsTheLowestFreeNumberAndTheMarksOfItsType)
{
    std::unique_ptr<VELDOutputImplementation> output = Make(2);
    TestFifo& fifo = *output->monitor;
    EXPECT_EQ(FifoReaders::Register(fifo, VELD::FifoReader, 3), 0);
    EXPECT_EQ(FifoReaders::Register(fifo, VELD::NeverSkippingReader, 1), 1);
    EXPECT_EQ(FifoReaders::Register(fifo, VELD::LastOrNextReader, 300), 2);
    EXPECT_EQ(FifoReaders::Register(fifo, VELD::Wait4NextReader, 5), 3);
    EXPECT_EQ(FifoReaders::Register(fifo, VELD::SamplingReader, 1), 4);
    EXPECT_EQ(FifoReaders::Register(fifo, 5, 1), -1);
    EXPECT_EQ(FifoReaders::Register(fifo, -1, 1), -1);

    EXPECT_EQ(fifo.registeredMask, 0x1Fu);
    EXPECT_EQ(fifo.fifoMask, 0x7u);
    EXPECT_EQ(fifo.neverSkippingMask, 0x2u);
    EXPECT_EQ(fifo.lastOrNextMask, 0x4u);
    // A FIFO reader keeps its subsampling, within 1 to 256; the others
    // their type.
    EXPECT_EQ(fifo.readerParam[0], 2);
    EXPECT_EQ(fifo.readerParam[1], 0);
    EXPECT_EQ(fifo.readerParam[2], 255);
    EXPECT_EQ(fifo.readerParam[3], VELD::Wait4NextReader);
    EXPECT_EQ(fifo.readerParam[4], VELD::SamplingReader);
    for (int r = 0; r < 5; ++r) EXPECT_NE(fifo.condition->events[r], nullptr);

    for (int r = 5; r < 32; ++r) EXPECT_EQ(FifoReaders::Register(fifo, VELD::SamplingReader, 1), r);
    EXPECT_EQ(FifoReaders::Register(fifo, VELD::FifoReader, 1), -1);
}

TEST_F(Readers, UnregisteringReleasesWhatTheReaderHeldAndTheWriterBlockedOnIt)
{
    std::unique_ptr<VELDOutputImplementation> output = Make(2);
    TestFifo& fifo = *output->monitor;
    int plain = FifoReaders::Register(fifo, VELD::FifoReader, 1);
    int never = FifoReaders::Register(fifo, VELD::NeverSkippingReader, 1);
    Write(*output, 1);
    Write(*output, 2);
    VELDListIterator held = TryRead(fifo, never);
    ASSERT_TRUE(held.ptr);
    std::atomic<bool> written(false);
    std::thread writer([&] {
        Write(*output, 3);  // steps over the held 1 and blocks on 2
        written = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_FALSE(written);

    FifoReaders::Unregister(fifo, never);
    writer.join();
    EXPECT_EQ(fifo.registeredMask, 1u << plain);
    EXPECT_EQ(fifo.neverSkippingMask, 0u);
    for (VELDBasicListItem* it = fifo.ring.First(); it; it = it->successor) {
        const TestFifo::Slot& slot = VELDList<TestFifo::Slot>::Value(it);
        EXPECT_EQ(slot.readingMask, 0u);
        EXPECT_NE(slot.state, VELDFastIOSlot::Reading);
    }
    FifoReaders::Unregister(fifo, never);  // twice, or a number never given: nothing happens
    FifoReaders::Unregister(fifo, 40);

    // The number comes back, and its new reader starts from the oldest
    // element there is, untroubled by what the old one had read.
    EXPECT_EQ(FifoReaders::Register(fifo, VELD::FifoReader, 1), never);
    EXPECT_EQ(ReadNow(fifo, never), 2);
    EXPECT_EQ(ReadNow(fifo, never), 3);
    EXPECT_EQ(ReadNow(fifo, never), -1);
}

TEST_F(Readers, UnregisteringTheLastSlowReaderEndsAHandshake)
{
    std::unique_ptr<VELDOutputImplementation> output = Make(2);
    TestFifo& fifo = *output->monitor;
    int reader = FifoReaders::Register(fifo, VELD::FifoReader, 1);
    Write(*output, 1);
    std::thread writer([&] { VELDOutputWriting::Wait4Handshake(module.owner, *output); });
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    FifoReaders::Unregister(fifo, reader);
    writer.join();
}

TEST_F(Readers, OverflowsAreCountedForEachOutputAndInTotal)
{
    std::unique_ptr<VELDOutputImplementation> first = Make(2);
    std::unique_ptr<VELDOutputImplementation> second = Make(2);
    FifoReaders::Register(*first->monitor, VELD::FifoReader, 1);
    FifoReaders::Register(*second->monitor, VELD::LastOrNextReader, 1);
    for (long v = 1; v <= 5; ++v) Write(*first, v);
    for (long v = 1; v <= 4; ++v) Write(*second, v);
    EXPECT_EQ(first->NbFIFOOverflows(), 3);
    EXPECT_EQ(second->NbFIFOOverflows(), 2);
    EXPECT_EQ(VELD::GetNbFifoOverflows(), 5);
    engine.SignalFifoOverflow(nullptr);  // a FIFO of no output counts in the total only
    EXPECT_EQ(engine.GetNbFifoOverflows(), 6);
}

}  // namespace
