#include "LogTestSupport.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <random>
#include <regex>
#include <sstream>

#include "can_log/LogFiles.h"

namespace veldor::canlog {

void PrintTo(const CanFrame& f, std::ostream* out)
{
    *out << canlog_test::Describe(f) << (f.direction == Direction::Tx ? " Tx" : " Rx");
}

}  // namespace veldor::canlog

namespace canlog_test {

using namespace veldor::canlog;

std::string Describe(const CanFrame& f)
{
    std::ostringstream out;
    out << "can " << f.timestamp << "us id=" << std::hex << f.id << std::dec << (f.extended ? "x" : "")
        << (f.remote ? " remote" : "") << (f.fd ? " fd" : "") << (f.bitRateSwitch ? " brs" : "")
        << (f.errorStateIndicator ? " esi" : "") << (f.error ? " error" : "") << " len=" << int(f.length)
        << " ch=" << int(f.channel);
    if (!f.remote) out << " " << ToHex(f.data.data(), f.length);
    return out.str();
}

std::string ToHex(const void* bytes, std::size_t size)
{
    static const char digits[] = "0123456789abcdef";
    std::string out;
    for (const auto* b = static_cast<const std::uint8_t*>(bytes); size-- > 0; ++b) out += {digits[*b >> 4], digits[*b & 15]};
    return out;
}

std::string Hex(const std::string& hex)
{
    std::string out;
    for (std::size_t i = 0; i + 1 < hex.size(); i += hex[i] == ' ' ? 1 : 2) {
        if (hex[i] != ' ') out.push_back(static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16)));
    }
    return out;
}

std::string U16(std::uint16_t v, bool big) { return big ? std::string{char(v >> 8), char(v)} : std::string{char(v), char(v >> 8)}; }
std::string U32(std::uint32_t v, bool big) { return big ? U16(v >> 16, big) + U16(v, big) : U16(v, big) + U16(v >> 16, big); }
std::string U64(std::uint64_t v, bool big) { return big ? U32(v >> 32, big) + U32(v, big) : U32(v, big) + U32(v >> 32, big); }

std::string RunTool(const std::string& command)
{
    std::string out;
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) {
        ADD_FAILURE() << "cannot run " << command;
        return out;
    }
    char buffer[4096];
    for (std::size_t n; (n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;) out.append(buffer, n);
    EXPECT_EQ(pclose(pipe), 0) << command << " printed:\n" << out;
    return out;
}

bool Have(const std::string& program) { return std::system(("command -v " + program + " >/dev/null 2>&1").c_str()) == 0; }

bool operator==(const Issue& a, const Issue& b) { return a.kind == b.kind && a.line == b.line; }

std::ostream& operator<<(std::ostream& out, const Issue& issue)
{
    return out << IssueKindName(issue.kind) << " at line " << issue.line;
}

ReadOutcome ReadAll(const std::string& path, const ReaderOptions& options)
{
    ReadOutcome outcome;
    std::unique_ptr<FrameReader> reader = OpenFrameReader(path, outcome.openError, options);
    if (!reader) return outcome;
    CanFrame frame;
    for (ReadResult r; (r = reader->Next(frame)) != ReadResult::End;) {
        if (r == ReadResult::Frame) {
            outcome.frames.push_back(frame);
        } else {
            outcome.issues.push_back({reader->Issue().kind, reader->Issue().place.number});
            outcome.messages.push_back(reader->Issue().Describe());
        }
    }
    outcome.errorFrames = reader->ErrorFrames();
    outcome.otherObjects = reader->OtherObjects();
    outcome.notices = reader->Notices();
    return outcome;
}

bool WriteAll(const std::string& path, const std::vector<CanFrame>& frames, const WriterOptions& options)
{
    std::string error;
    std::unique_ptr<FrameWriter> writer = OpenFrameWriter(path, error, options);
    EXPECT_TRUE(writer) << error;
    if (!writer) return false;
    for (const CanFrame& f : frames) {
        if (writer->Write(f) != WriteResult::Written) {
            ADD_FAILURE() << writer->Error();
            return false;
        }
    }
    EXPECT_TRUE(writer->Close()) << writer->Error();
    return writer->Error().empty();
}

ReaderOptions UtcReading(bool errorFrames)
{
    ReaderOptions options;
    options.dateZone = DateZone::Utc;
    options.errorFrames = errorFrames;
    return options;
}

WriterOptions UtcWriting()
{
    WriterOptions options;
    options.dateZone = DateZone::Utc;
    return options;
}

void ExpectFrames(const ReadOutcome& outcome, const std::vector<CanFrame>& expected)
{
    EXPECT_EQ(outcome.openError, "");
    EXPECT_EQ(outcome.messages, std::vector<std::string>());
    ExpectSame(outcome.frames, expected);
}

void ExpectSame(const std::vector<CanFrame>& read, const std::vector<CanFrame>& expected)
{
    ASSERT_EQ(read.size(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i) ASSERT_EQ(read[i], expected[i]) << "frame " << i;
}

CanFrame Classic(std::int64_t timestamp, std::uint32_t id, std::initializer_list<std::uint8_t> data, bool extended)
{
    CanFrame f;
    f.timestamp = timestamp;
    f.id = id;
    f.extended = extended;
    f.length = static_cast<std::uint8_t>(data.size());
    std::copy(data.begin(), data.end(), f.data.begin());
    return f;
}

CanFrame Remote(std::int64_t timestamp, std::uint32_t id, std::uint8_t length, bool extended)
{
    CanFrame f = Classic(timestamp, id, {}, extended);
    f.remote = true;
    f.length = length;
    return f;
}

CanFrame On(CanFrame f, std::uint8_t channel, Direction direction)
{
    f.channel = channel;
    f.direction = direction;
    return f;
}

CanFrame AsError(CanFrame f)
{
    f.error = true;
    return f;
}

CanFrame Fd(std::int64_t timestamp, std::uint32_t id, std::uint8_t length, bool bitRateSwitch, bool errorStateIndicator,
            std::uint8_t first)
{
    CanFrame f = Classic(timestamp, id, {});
    f.fd = true;
    f.bitRateSwitch = bitRateSwitch;
    f.errorStateIndicator = errorStateIndicator;
    f.length = length;
    for (int i = 0; i < length; ++i) f.data[i] = static_cast<std::uint8_t>(first + i);
    return f;
}

std::vector<CanFrame> VariedFrames(std::int64_t start, std::size_t count, std::uint32_t seed)
{
    std::mt19937 random(seed);
    auto pick = [&random](std::uint32_t bound) { return static_cast<std::uint32_t>(random() % bound); };
    std::vector<CanFrame> frames;
    std::int64_t time = start;
    for (std::size_t i = 0; i < count; ++i) {
        CanFrame f;
        time += pick(3) == 0 ? 0 : pick(2000000);  // equal times too
        f.timestamp = time;
        f.extended = pick(2) == 1;
        f.id = pick(f.extended ? CanFrame::kMaxExtendedId + 1 : CanFrame::kMaxStandardId + 1);
        if (i % 7 == 0) f.id = f.extended ? CanFrame::kMaxExtendedId : CanFrame::kMaxStandardId;
        f.channel = static_cast<std::uint8_t>(pick(4) == 0 ? pick(256) : pick(3));
        f.direction = pick(3) == 0 ? Direction::Tx : Direction::Rx;
        switch (i % 4) {
        case 0: f.length = static_cast<std::uint8_t>(i / 4 % 9); break;  // classic, every length
        case 1:
            f.remote = true;
            f.length = static_cast<std::uint8_t>(pick(9));
            break;
        default:
            f.fd = true;
            f.length = DlcToLength(static_cast<std::uint8_t>(i / 4 % 16), true);  // every DLC
            f.bitRateSwitch = pick(2) == 1;
            f.errorStateIndicator = pick(4) == 0;
            break;
        }
        if (!f.remote) {
            for (int b = 0; b < f.length; ++b) f.data[b] = static_cast<std::uint8_t>(pick(256));
        }
        frames.push_back(f);
    }
    return frames;
}

bool PythonCanReady()
{
    if (std::system("/usr/bin/python3 -c 'import can' >/dev/null 2>&1") != 0) return false;
    setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    tzset();
    return true;
}

std::string RunPartner(const std::string& script, const std::string& verb, const std::string& path,
                       const std::string& argument)
{
    return RunTool("/usr/bin/python3 " + script + " " + verb + " '" + path + "' " + argument);
}

bool PythonCanCutItsDateLine(const std::string& path)
{
    static const std::regex kWhole(R"(date \w{3} \w{3} \d{2} \d{2}:\d{2}:\d{2}\.\d{3} [AP]M \d{4})");
    if (path.size() < 4 || path.compare(path.size() - 4, 4, ".asc") != 0) return false;
    std::ifstream in(path);
    std::string first;
    std::getline(in, first);
    return !std::regex_match(first, kWhole);
}

std::vector<CanFrame> ParseFrames(const std::string& text)
{
    std::vector<CanFrame> frames;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream fields(line);
        CanFrame f;
        std::string id, direction, data;
        int flags[6], length = 0, channel = 0;
        fields >> f.timestamp >> id >> flags[0] >> flags[1] >> flags[2] >> flags[3] >> flags[4] >> flags[5] >> length >>
            channel >> direction >> data;
        EXPECT_FALSE(fields.fail()) << "unreadable partner line: " << line;
        f.id = static_cast<std::uint32_t>(std::stoul(id, nullptr, 16));
        f.extended = flags[0];
        f.remote = flags[1];
        f.fd = flags[2];
        f.bitRateSwitch = flags[3];
        f.errorStateIndicator = flags[4];
        f.error = flags[5];
        f.length = static_cast<std::uint8_t>(length);
        f.channel = static_cast<std::uint8_t>(channel);
        f.direction = direction == "T" ? Direction::Tx : Direction::Rx;
        for (std::size_t i = 0; data != "-" && 2 * i + 1 < data.size(); ++i) {
            f.data[i] = static_cast<std::uint8_t>(std::stoul(data.substr(2 * i, 2), nullptr, 16));
        }
        frames.push_back(f);
    }
    return frames;
}

}  // namespace canlog_test
