// Reading through the engine's connections: what each reader type gets,
// input subsampling, the last n elements, synchronised reads, several inputs
// at once, and connections that change while a reader is blocked.
#include <gtest/gtest.h>

#include <atomic>

#include "runtime_support.h"
#include "thrown.h"
#include "veld.h"

namespace {

class Reading : public ::testing::Test {
protected:
    Reading() : engine(Quiet())
    {
        sourceTables.outputs.push_back(IntegerOutput("oOut", 8));
        sourceTables.Finish(0, 1, 0, 0);
        for (int type = 0; type < 5; ++type) {
            sinkTables[type].inputs.push_back(IntegerInput("iIn", type));
            sinkTables[type].Finish(1, 0, 0, 0);
        }
        pairTables.inputs.push_back(IntegerInput("iA"));
        pairTables.inputs.push_back(IntegerInput("iB"));
        pairTables.Finish(2, 0, 0, 0);
    }

    Probe& Source(const char* name) { return engine.Make(name, sourceTables); }
    Probe& Sink(const char* name, int readerType = VELD::FifoReader) { return engine.Make(name, sinkTables[readerType]); }
    static int Read(Probe& sink, const char* input = "iIn") { return ValueOf(sink.StartReading(sink.Input(input))); }

    // A sink whose core records what it reads.
    Probe& RunningSink(const char* name, Seen& seen, int readerType = VELD::FifoReader)
    {
        Probe& sink = Sink(name, readerType);
        sink.core = [&seen](Probe& self) {
            if (VELDIOElt* element = self.StartReading(self.Input("iIn"))) seen.Add(ValueOf(element));
        };
        return sink;
    }

    ModelTables sourceTables, sinkTables[5], pairTables;
    TestEngine engine;
};

TEST_F(Reading, EachReaderTypeGetsWhatItPromises)
{
    Probe& source = Source("src");
    VELDOutput& out = source.Output("oOut");
    Probe& fifo = Sink("fifo", VELD::FifoReader);
    Probe& never = Sink("never", VELD::NeverSkippingReader);
    Probe& lastOrNext = Sink("last", VELD::LastOrNextReader);
    Probe& next = Sink("next", VELD::Wait4NextReader);
    Probe& sampling = Sink("sampling", VELD::SamplingReader);
    for (Probe* sink : {&fifo, &never, &lastOrNext, &next, &sampling})
        ASSERT_TRUE(VELD::Attach(out, sink->Input("iIn")));
    EXPECT_EQ(engine.Links().NbConnections(), 5);

    for (int v = 1; v <= 3; ++v) Write(source, out, v);
    EXPECT_EQ(Read(fifo), 1);
    EXPECT_EQ(Read(fifo), 2);
    EXPECT_EQ(Read(never), 1);
    EXPECT_EQ(Read(lastOrNext), 3);
    EXPECT_EQ(Read(sampling), 3);
    EXPECT_EQ(Read(sampling), 3);
    EXPECT_TRUE(fifo.DataAvailableInFIFO(fifo.Input("iIn")));
    EXPECT_EQ(fifo.Input("iIn").NbDataAvailableInFIFO(), 1);

    // The next-reader waits although data is there.
    std::atomic<int> got(0);
    std::thread reader([&] { got = Read(next); });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(got.load(), 0);
    Write(source, out, 4);
    reader.join();
    EXPECT_EQ(got.load(), 4);
    EXPECT_EQ(Read(fifo), 3);
    EXPECT_EQ(Read(fifo), 4);
    EXPECT_EQ(Read(lastOrNext), 4);
    EXPECT_EQ(Read(sampling), 4);
    for (Probe* sink : {&fifo, &lastOrNext, &next, &sampling}) sink->StopReading(sink->Input("iIn"));

    // The never-skipping reader holds the writer back: nothing is lost.
    std::thread writer([&] {
        for (int v = 5; v <= 40; ++v) Write(source, out, v);
    });
    std::vector<int> values;
    values.push_back(Read(never));  // 2, left from before
    for (int v = 3; v <= 40; ++v) values.push_back(Read(never));
    writer.join();
    for (size_t i = 0; i < values.size(); ++i) EXPECT_EQ(values[i], static_cast<int>(i) + 2);
    // What the plain reader beside it lost, and its count: data/fifo_test
    // and graph/diagram_test.
}

TEST_F(Reading, InputSubsamplingHandsOverEveryThirdElement)
{
    Probe& source = Source("src");
    ModelTables& tables = engine.NewTables();
    tables.inputs.push_back(IntegerInput("iIn", VELD::FifoReader, 3));
    tables.Finish(1, 0, 0, 0);
    Probe& sink = engine.Make("sink", tables);
    ASSERT_TRUE(VELD::Attach(source.Output("oOut"), sink.Input("iIn")));
    for (int v = 1; v <= 7; ++v) Write(source, source.Output("oOut"), v);
    EXPECT_EQ(Read(sink), 3);
    EXPECT_EQ(Read(sink), 6);
    std::thread writer([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        Write(source, source.Output("oOut"), 8);
        Write(source, source.Output("oOut"), 9);
    });
    EXPECT_EQ(Read(sink), 9);
    writer.join();
}

TEST_F(Reading, TheLastNElementsSlideOldestFirst)
{
    Probe& source = Source("src");
    Probe& sink = Sink("sink");
    ASSERT_TRUE(VELD::Attach(source.Output("oOut"), sink.Input("iIn")));
    for (int v = 1; v <= 5; ++v) Write(source, source.Output("oOut"), v);
    VELDIOElt* elts[3];
    auto window = [&] {
        EXPECT_TRUE(sink.NLastStartReading(sink.Input("iIn"), 3, elts));
        return std::vector<int>{ValueOf(elts[0]), ValueOf(elts[1]), ValueOf(elts[2])};
    };
    EXPECT_EQ(window(), (std::vector<int>{1, 2, 3}));
    EXPECT_EQ(window(), (std::vector<int>{2, 3, 4}));
    EXPECT_EQ(window(), (std::vector<int>{3, 4, 5}));
    // A smaller window drops the oldest held elements.
    Write(source, source.Output("oOut"), 6);
    EXPECT_TRUE(sink.NLastStartReading(sink.Input("iIn"), 2, elts));
    EXPECT_EQ(ValueOf(elts[0]), 5);
    EXPECT_EQ(ValueOf(elts[1]), 6);
    sink.StopReading(sink.Input("iIn"));
}

// Two sources feed the two inputs of one sink.
TEST_F(Reading, SynchronisedReadsSeveralInputsAndTheCallersEvents)
{
    Probe &a = Source("a"), &b = Source("b"), &sink = engine.Make("sink", pairTables);
    VELDInput* inputs[2] = {&sink.Input("iA"), &sink.Input("iB")};
    ASSERT_TRUE(VELD::Attach(a.Output("oOut"), *inputs[0]));
    ASSERT_TRUE(VELD::Attach(b.Output("oOut"), *inputs[1]));
    VELDIOElt* elts[2];
    auto values = [&] { return std::make_pair(ValueOf(elts[0]), ValueOf(elts[1])); };
    Write(a, a.Output("oOut"), 1, 100);
    Write(a, a.Output("oOut"), 2, 200);
    Write(a, a.Output("oOut"), 3, 300);
    Write(b, b.Output("oOut"), 10, 300);
    // The older elements of a are dropped until a's timestamp meets b's.
    EXPECT_EQ(sink.SynchroStartReading(2, inputs, elts, 0), 300);
    EXPECT_EQ(values(), std::make_pair(3, 10));
    Write(a, a.Output("oOut"), 4, 1000);
    Write(b, b.Output("oOut"), 11, 1040);
    EXPECT_EQ(sink.SynchroStartReading(2, inputs, elts, 50), 1040);
    EXPECT_EQ(values(), std::make_pair(4, 11));
    VELDEvent abort(true, nullptr);
    EXPECT_EQ(sink.SynchroStartReading(2, inputs, elts, 0, &abort), -1);
    EXPECT_EQ(elts[0], nullptr);
    EXPECT_EQ(elts[1], nullptr);
    EXPECT_EQ(Thrown([&] { sink.SynchroStartReading(2, inputs, elts, -1); }), VELD::ErrorException);
    EXPECT_TRUE(engine.GetConsole().Contains("synchroTolerance cannot be negative"));

    // Any of the inputs, or one of the caller's events.
    int answered = -1;
    Write(b, b.Output("oOut"), 5);
    EXPECT_EQ(ValueOf(sink.StartReading(2, inputs, &answered)), 5);
    EXPECT_EQ(answered, 1);
    VELDEvent stop(false, nullptr);
    VELDEvent* events[1] = {&stop};
    std::thread later([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        stop.Set();
    });
    EXPECT_EQ(sink.StartReading(2, inputs, &answered, 1, events), nullptr);
    EXPECT_EQ(answered, 2);
    later.join();
    stop.Reset();
    std::thread writer([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        Write(a, a.Output("oOut"), 6);
    });
    EXPECT_EQ(ValueOf(sink.StartReading(2, inputs, &answered, 1, events)), 6);
    EXPECT_EQ(answered, 0);
    writer.join();
}

TEST_F(Reading, ConnectionsAreCheckedAndListed)
{
    Probe& a = Source("a");
    Probe& b = Source("b");
    Probe& sink = Sink("sink");
    ModelTables& floats = engine.NewTables();
    floats.outputs.push_back(VELDOutputDefinition{"oFloat", 0, VELDTypeInfo(VELD::Float64), 1, 4, 1, 1});
    floats.Finish(0, 1, 0, 0);
    Probe& f = engine.Make("f", floats);
    EXPECT_FALSE(VELD::Attach(f.Output("oFloat"), sink.Input("iIn")));
    EXPECT_TRUE(engine.GetConsole().Contains(
        "Cannot attach f.oFloat to sink.iIn: the input does not accept the type of the output."));
    EXPECT_TRUE(VELD::Attach("a.oOut", "sink.iIn"));
    EXPECT_TRUE(VELD::Attach(a.Output("oOut"), sink.Input("iIn")));
    EXPECT_FALSE(VELD::Attach("b.oOut", "sink.iIn"));
    EXPECT_TRUE(engine.GetConsole().Contains("the input is already fed by a.oOut; detach it first."));
    EXPECT_TRUE(VELD::Attach2("b.oOut", "sink.iIn"));
    EXPECT_EQ(sink.Input("iIn").ConnectedOutput(), &b.Output("oOut"));
    ASSERT_EQ(engine.Links().List().size(), 1u);
    EXPECT_EQ(engine.Links().List()[0].output, "b.oOut");
    EXPECT_FALSE(VELD::Detach(a.Output("oOut"), sink.Input("iIn")));
    EXPECT_FALSE(VELD::Attach("a.nothing", "sink.iIn"));
    EXPECT_EQ(engine.Links().DetachAll(), 1);
    EXPECT_FALSE(sink.Input("iIn").IsConnected());
}

TEST_F(Reading, AnOutputFeedsAtMost32Inputs)
{
    Probe& source = Source("src");
    std::vector<Probe*> sinks;
    for (int i = 0; i < 33; ++i) sinks.push_back(&Sink(("s" + std::to_string(i)).c_str()));
    for (int i = 0; i < 32; ++i) ASSERT_TRUE(VELD::Attach(source.Output("oOut"), sinks[i]->Input("iIn")));
    EXPECT_FALSE(VELD::Attach(source.Output("oOut"), sinks[32]->Input("iIn")));
    engine.Remove(source);
    EXPECT_EQ(engine.Links().NbConnections(), 0);
}

TEST_F(Reading, AttachingDetachingAndMovingWhileTheReaderIsBlockedLosesNothing)
{
    // A reader newly in a FIFO starts at its oldest element: each round has
    // a FIFO of its own, so that what the reader sees is exactly what was
    // written while it was attached.
    std::vector<Probe*> sources;
    for (int i = 0; i < 7; ++i) sources.push_back(&Source(("s" + std::to_string(i)).c_str()));
    Seen seen;
    Probe& sink = RunningSink("sink", seen);
    sink.Start();
    VELDInput& input = sink.Input("iIn");
    std::this_thread::sleep_for(std::chrono::milliseconds(10));  // waiting for a connection, first
    int expected = 0;
    for (int round = 0; round < 5; ++round) {
        Probe& from = *sources[static_cast<size_t>(round)];
        ASSERT_TRUE(VELD::Attach(from.Output("oOut"), input));
        Write(from, from.Output("oOut"), ++expected);
        ASSERT_TRUE(seen.WaitFor(static_cast<size_t>(expected)));
        // The reader is back in its read, blocked.
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        ASSERT_TRUE(VELD::Detach(from.Output("oOut"), input));
    }
    // Moved while blocked.
    ASSERT_TRUE(VELD::Attach(sources[5]->Output("oOut"), input));
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    ASSERT_TRUE(VELD::Attach2("s6.oOut", "sink.iIn"));
    Write(*sources[5], sources[5]->Output("oOut"), 99);
    Write(*sources[6], sources[6]->Output("oOut"), ++expected);
    ASSERT_TRUE(seen.WaitFor(static_cast<size_t>(expected)));
    std::vector<int> values = seen.Values();
    ASSERT_EQ(values.size(), static_cast<size_t>(expected));
    for (int i = 0; i < expected; ++i) EXPECT_EQ(values[static_cast<size_t>(i)], i + 1);
    sink.Shutdown();
}

TEST_F(Reading, AWriterThreadFeedsAThreadedSinkInOrder)
{
    Probe& source = Source("src");
    Seen seen;
    Probe& sink = RunningSink("sink", seen, VELD::NeverSkippingReader);
    ASSERT_TRUE(VELD::Attach(source.Output("oOut"), sink.Input("iIn")));
    std::atomic<int> next(1);
    source.core = [&next](Probe& self) {
        if (next.load() <= 200)
            Write(self, self.Output("oOut"), next++);
        else
            self.Wait4Event(self.m_dieEvent, VELD::Infinite);
    };
    sink.Start();
    source.Start();
    ASSERT_TRUE(seen.WaitFor(200));
    std::vector<int> values = seen.Values();
    for (int i = 0; i < 200; ++i) EXPECT_EQ(values[static_cast<size_t>(i)], i + 1);
    // The writer goes first: its readers step aside while its FIFO empties.
    source.Shutdown();
    sink.Shutdown();
    EXPECT_TRUE(source.State() & VELD::DeadState);
    EXPECT_TRUE(sink.State() & VELD::DeadState);
}

}  // namespace
