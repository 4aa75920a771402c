// The element file recorder and player through the engine, without a bus:
// what one diagram records another plays back element for element, paced
// by the recorded times; what can't be recorded or played is told.
#include <cstring>

#include "MainJobTest.h"

namespace mainjob {
namespace {

using Record = std::vector<unsigned char>;
using Settings = std::vector<std::pair<std::string, std::string>>;

// The records after the file's 16-byte head, each after its 32-bit size.
std::vector<Record> ReadRecords(const std::string& path)
{
    const std::string bytes = ReadText(path);
    std::vector<Record> records;
    for (std::size_t at = 16; at + 4 <= bytes.size();) {
        std::uint32_t size = 0;
        std::memcpy(&size, bytes.data() + at, 4);
        at += 4;
        records.emplace_back(bytes.begin() + static_cast<long>(at), bytes.begin() + static_cast<long>(at + size));
        at += size;
    }
    return records;
}

// A record without its time of issue, which each diagram gives anew.
Record WithoutTimeOfIssue(Record record)
{
    if (record.size() >= 28) std::memset(record.data() + 20, 0, 8);
    return record;
}

std::int64_t TimestampOf(const Record& record)
{
    std::int64_t t = 0;
    std::memcpy(&t, record.data() + 12, 8);
    return t;
}

// ---------------------------------------------------------------------------
// Recorded in one diagram, played into another

struct StreamCase {
    const char* name;
    const char* model;  // of the source "src"
    Settings settings;
    const char* output;
    int elements;
};

class EltFiles : public FileComponentTest {
protected:
    // What the source "src" writes on `output`, recorded into `file`; the
    // diagram cleared after.
    void RecordInto(const std::string& file, const std::string& output, long long elements)
    {
        Make("EltFileRecorder", "rec", {{"file", file}});
        Connect("src." + output, "rec.iElt");
        Run();
        ASSERT_TRUE(Eventually([&] { return Figure("rec.recorded") == elements; }, 10)) << Figure("rec.recorded");
        Shutdown();
        engine.Graph().Clear();
    }
};

class EltFileRecorderAndPlayer : public EltFiles, public ::testing::WithParamInterface<StreamCase> {};

TEST_P(EltFileRecorderAndPlayer, GiveEveryElementBackWithItsTimestampAndPayload)
{
    const StreamCase& c = GetParam();
    const std::string recorded = m_folder + "/a.velt", replayed = m_folder + "/b.velt";
    Make(c.model, "src", c.settings);
    RecordInto(recorded, c.output, c.elements);

    Make("EltFilePlayer", "play", {{"file", recorded}, {"paced", "false"}});
    Make("EltFileRecorder", "again", {{"file", replayed}});
    Connect("play.oElt", "again.iElt");
    Run();
    ASSERT_TRUE(Eventually([&] { return Figure("again.recorded") == c.elements; }, 10)) << Figure("again.recorded");
    EXPECT_TRUE(Eventually([&] { return Figure("play.finished") == 1; }, 5));
    Shutdown();

    const std::vector<Record> first = ReadRecords(recorded), second = ReadRecords(replayed);
    ASSERT_EQ(first.size(), static_cast<std::size_t>(c.elements));
    ASSERT_EQ(second.size(), first.size());
    for (std::size_t i = 0; i < first.size(); ++i)
        EXPECT_EQ(WithoutTimeOfIssue(second[i]), WithoutTimeOfIssue(first[i])) << i;
    EXPECT_EQ(Figure("play.log_start"), TimestampOf(first[0]));
    EXPECT_EQ(Figure("play.played"), c.elements);
}

Settings With(Settings more)
{
    more.insert(more.begin(), {{"count", "60"}, {"period", "1000"}, {"paced", "false"}, {"first_timestamp", "1700000000000000"}});
    return more;
}

INSTANTIATE_TEST_SUITE_P(
    Streams, EltFileRecorderAndPlayer,
    ::testing::Values(
        StreamCase{"CanVectors", "CanGenerator", With({{"frames_per_element", "4"}}), "oCAN", 15},
        StreamCase{"UniversalFdFrames", "CanGenerator",
                   With({{"output_type", "Universal CAN"}, {"length", "24"}, {"fd", "true"}}), "oCAN", 60},
        StreamCase{"ReplayStates", "StateSource", {{"count", "25"}}, "oReplayStateInfo", 25},
        StreamCase{"Times", "ReplayTimeSource", {{"log_start", "1700000000123456"}}, "oLogStartTime", 1}),
    [](const ::testing::TestParamInfo<StreamCase>& info) { return std::string(info.param.name); });

// ---------------------------------------------------------------------------
// Paced on the engine's clock

TEST_F(EltFiles, ThePlayerHandsNoElementOnBeforeItIsDue)
{
    const std::string file = m_folder + "/frames.velt", csv = m_folder + "/arrivals.csv";
    Make("CanGenerator", "src", {{"count", "40"}, {"period", "5000"}, {"paced", "false"}, {"first_timestamp", "1700000000000000"}});
    RecordInto(file, "oCAN", 40);

    Make("EltFilePlayer", "play", {{"file", file}, {"replay_lead", "20000"}});
    Make("CanFrameStats", "stats", {{"csv", csv}});
    Connect("play.oElt", "stats.iCAN");
    Run();
    ASSERT_TRUE(Eventually([&] { return Figure("stats.frames") == 40; }, 10)) << Figure("stats.frames");
    const long long start = Figure("play.replay_start_time"), logStart = Figure("play.log_start");
    Shutdown();
    const std::vector<Arrival> arrivals = ReadArrivals(csv);
    ASSERT_EQ(arrivals.size(), 40u);
    for (std::size_t k = 0; k < arrivals.size(); ++k) {
        EXPECT_EQ(arrivals[k].counter, static_cast<long long>(k));
        EXPECT_GE(arrivals[k].arrival, start + (arrivals[k].frameTime - logStart)) << k;
    }
}

// ---------------------------------------------------------------------------
// What is refused

TEST_F(EltFiles, TheRecorderRefusesThePcapStreamRecordWithOneMessage)
{
    Make("PcapSource", "src");
    Make("EltFileRecorder", "rec", {{"file", m_folder + "/pcap.velt"}});
    Connect("src.oEth", "rec.iElt");
    Run();
    const std::string message = "cannot record VELDpcap_data_t elements: their payload holds addresses that mean "
                                "something only in the process that wrote them";
    ASSERT_TRUE(Eventually([&] { return Reported(message); }, 10));
    Shutdown();
    EXPECT_EQ(engine.GetConsole().CountContaining("cannot record"), 1u);
    EXPECT_EQ(Figure("rec.recorded"), 0);
    EXPECT_TRUE(ReadRecords(m_folder + "/pcap.velt").empty());
}

TEST_F(EltFiles, FilesThePlayerCanNotPlayAreToldAtBirth)
{
    const std::string head("VELT\x01\0\0\0\x04\x03\x02\x01\0\0\0\0", 16), path = m_folder + "/bad.velt";
    const std::pair<std::string, const char*> cases[] = {
        {"", ": No such file or directory"},  // no file at all
        {"(1.0) can0 123#00\n", " is not an element file"},
        {head, " holds no element"},
        {head + std::string("\x50\0\0\0\x66\0\0\0", 8), " ends inside an element (the recording was cut off)"},
    };
    for (const auto& [bytes, message] : cases) {
        SCOPED_TRACE(message);
        engine.Graph().Clear();
        if (!bytes.empty()) WriteText(path, bytes);
        Make("EltFilePlayer", "play", {{"file", path}});
        EXPECT_FALSE(HasProperty("play", "oElt"));
        std::string error;
        engine.Graph().Run(&error);
        EXPECT_TRUE(Eventually([&] { return Reported(path + message); }, 5)) << engine.GetConsole().LastError();
        Shutdown();
    }
}

}  // namespace
}  // namespace mainjob
