// A live CAN diagram on the simulated bus records what a monitor reads into an
// element file, beside a printer; another diagram plays the file back into a
// printer of its own: the same frames, with the same frame and element
// timestamps, in the same elements.
#include <string>
#include <vector>

#include "ComponentTest.h"

namespace bus_components {
namespace {

bool operator==(const PrintedFrame& a, const PrintedFrame& b)
{
    return a.ts == b.ts && a.id == b.id && a.extended == b.extended && a.length == b.length && a.data == b.data &&
           a.flags == b.flags && a.elementTs == b.elementTs && a.index == b.index && a.size == b.size;
}

TEST_F(ComponentTest, AnElementFileOfALiveCanDiagramPlaysBackTheSameFrames)
{
    const int frames = 64;
    const std::string file = m_folder + "/bus.velt";
    MakeOnChannel("NxCanMonitoring", "rx", "NVX-CAN-2", true);
    Set("rx.output_type", "Universal CAN");
    Set("rx.vectorize_frames", "true");
    const std::string live = MakePrinter("live", "rx.oCAN");
    Make("EltFileRecorder", "rec");
    Set("rec.file", file);
    Connect("rx.oCAN", "rec.iElt");
    Make("CanGenerator", "gen");
    Set("gen.output_type", "Universal CAN");
    Set("gen.length", "12");
    Set("gen.fd", "true");
    Set("gen.brs", "true");
    Set("gen.count", std::to_string(frames));
    Set("gen.frames_per_element", "4");
    Set("gen.period", "1000");
    MakeOnChannel("NxCanInject", "tx", "NVX-CAN-1", true, "Unsynchronized");
    Connect("gen.oCAN", "tx.iCAN");
    Run();
    ASSERT_TRUE(Eventually([&] { return Figure("live.printed") >= frames; }, 10)) << Figure("live.printed");
    // The printer writes each element as it comes: what it printed tells the
    // elements that the recorder must have.
    long long elements = 0;
    for (const PrintedFrame& frame : ReadPrinted(live)) elements += frame.index == 0 ? 1 : 0;
    ASSERT_TRUE(Eventually([&] { return Figure("rec.recorded") == elements; }, 5)) << Figure("rec.recorded");
    Shutdown();
    engine.Graph().Clear();

    Make("EltFilePlayer", "play");
    Set("play.file", file);
    const std::string replayed = MakePrinter("replayed", "play.oElt");
    Run();
    ASSERT_TRUE(Eventually([&] { return Figure("play.finished") == 1; }, 10));
    ASSERT_TRUE(Eventually([&] { return Figure("replayed.printed") >= frames; }, 5)) << Figure("replayed.printed");
    Shutdown();

    const std::vector<PrintedFrame> before = ReadPrinted(live), after = ReadPrinted(replayed);
    ASSERT_EQ(before.size(), static_cast<std::size_t>(frames));
    ASSERT_EQ(after.size(), before.size());
    for (std::size_t i = 0; i < before.size(); ++i) {
        EXPECT_TRUE(after[i] == before[i]) << i;
        EXPECT_EQ(CounterOf(after[i]), i);
    }
    EXPECT_EQ(Figure("play.played"), elements);
}

}  // namespace
}  // namespace bus_components
