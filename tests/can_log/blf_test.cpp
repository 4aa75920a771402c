// BLF made by hand, for what python-can never writes (the object forms it
// does not use, version 2 headers, times in 10 us, other padding, objects
// across containers) and for damage: each damaged piece is told and
// reading goes on.
#include <gtest/gtest.h>
#include <zlib.h>

#include <cstring>

#include "LogTestSupport.h"
#include "can_log/BlfReader.h"

using namespace veldor::canlog;
using namespace canlog_test;

namespace {

// 2023-11-14 22:13:20.123 UTC
constexpr std::int64_t kStart = 1700000000123000;

struct Bytes {
    std::vector<std::uint8_t> b;
    Bytes& u8(std::uint32_t v) { return b.push_back(static_cast<std::uint8_t>(v)), *this; }
    Bytes& u16(std::uint32_t v) { return u8(v).u8(v >> 8); }
    Bytes& u32(std::uint32_t v) { return u16(v).u16(v >> 16); }
    Bytes& u64(std::uint64_t v) { return u32(static_cast<std::uint32_t>(v)).u32(static_cast<std::uint32_t>(v >> 32)); }
    Bytes& raw(const std::vector<std::uint8_t>& v) { return b.insert(b.end(), v.begin(), v.end()), *this; }
    Bytes& zeros(std::size_t n) { return b.resize(b.size() + n), *this; }
};

// An object with a version 1 header (times in ns) or a version 2 one (in
// 10 us), padded with (size % 4) bytes, or as many as `padding` says.
std::vector<std::uint8_t> Object(std::uint32_t type, const Bytes& body, std::uint64_t time, int version = 1,
                                 int padding = -1)
{
    const std::size_t header = version == 1 ? 32 : 40;
    const std::size_t size = header + body.b.size();
    Bytes o;
    o.raw({'L', 'O', 'B', 'J'}).u16(header).u16(version).u32(size).u32(type);
    if (version == 1) o.u32(2).u32(0).u64(time);
    if (version == 2) o.u32(1).u32(0).u64(time).u64(0);
    return o.raw(body.b).zeros(padding < 0 ? size % 4 : padding).b;
}

// A log container of `data`, stored (method 0), compressed (2) or by an
// unknown method; its last `cut` bytes cut off.
std::vector<std::uint8_t> Container(const std::vector<std::uint8_t>& data, int method, std::size_t cut = 0)
{
    std::vector<std::uint8_t> stored = data;
    if (method == 2) {
        uLongf n = compressBound(static_cast<uLong>(data.size()));
        stored.resize(n);
        compress(stored.data(), &n, data.data(), static_cast<uLong>(data.size()));
        stored.resize(n);
    }
    Bytes o;
    const std::size_t size = 32 + stored.size();
    o.raw({'L', 'O', 'B', 'J'}).u16(16).u16(1).u32(size).u32(10).u16(method).zeros(6).u32(data.size()).zeros(4);
    o.raw(stored).zeros(size % 4);
    o.b.resize(o.b.size() - cut);
    return o.b;
}

std::string File(const std::vector<std::vector<std::uint8_t>>& parts)
{
    Bytes h;
    // Start 2023-11-14 22:13:20.123 (read as UTC here); stop unused.
    h.raw({'L', 'O', 'G', 'G'}).u32(144).zeros(32);
    h.u16(2023).u16(11).u16(2).u16(14).u16(22).u16(13).u16(20).u16(123).zeros(16 + 72);
    for (const auto& p : parts) h.raw(p);
    return std::string(h.b.begin(), h.b.end());
}

std::vector<std::uint8_t> Join(std::initializer_list<std::vector<std::uint8_t>> parts)
{
    std::vector<std::uint8_t> all;
    for (const auto& p : parts) all.insert(all.end(), p.begin(), p.end());
    return all;
}

// Body of a CAN message (type 1 or 86).
Bytes Message(int channel, int flags, int dlc, std::uint32_t id, std::vector<std::uint8_t> data, bool newer = false)
{
    data.resize(8);
    Bytes b;
    b.u16(channel).u8(flags).u8(dlc).u32(id).raw(data);
    if (newer) b.zeros(8);
    return b;
}

// Body of a CAN FD message 64 (type 101).
Bytes Fd64(int channel, int dlc, std::uint32_t id, std::uint32_t flags, int direction, const std::vector<std::uint8_t>& data)
{
    Bytes b;
    b.u8(channel).u8(dlc).u8(data.size()).u8(0).u32(id).u32(0).u32(flags).zeros(16).u16(0).u8(direction).u8(0).u32(0);
    return b.raw(data);
}

std::vector<std::uint8_t> Counting(int n, int first = 0)
{
    std::vector<std::uint8_t> v;
    for (int i = 0; i < n; ++i) v.push_back(static_cast<std::uint8_t>(first + i));
    return v;
}

class BlfReading : public ::testing::Test {
protected:
    ReadOutcome Read(const std::string& bytes)
    {
        const std::string path = m_dir.File("t.blf");
        WriteText(path, bytes);
        return ReadAll(path, UtcReading(true));
    }

    ScratchDir m_dir;
};

}  // namespace

TEST_F(BlfReading, ObjectsOfEveryFormAcrossContainers)
{
    // An FD message 64 that begins in the first container and ends in the
    // second; and an object padded to a multiple of four, as some writers do.
    const std::vector<std::uint8_t> across =
        Object(101, Fd64(3, 9, 0x456, 0x7000, 1, Counting(12, 0x30)), 4000000);
    const std::vector<std::uint8_t> first = Join({
        Object(1, Message(1, 0, 2, 0x123, {0xAA, 0xBB}), 1000),
        Object(86, Message(2, 0x81, 4, 0x80000000 | 0x1ABCDEF0, {}, true), 5, 2),
        Object(96, Bytes().zeros(49), 0, 1, 3),  // a marker: another kind of object
        // The older FD object without EDL: a classic frame on an FD channel.
        Object(100, Bytes().u16(1).u8(0).u8(8).u32(0x100).zeros(5).u8(0).u8(8).zeros(5).raw(Counting(64)), 3000000),
        std::vector<std::uint8_t>(across.begin(), across.begin() + 30),
    });
    const std::vector<std::uint8_t> second = Join({
        std::vector<std::uint8_t>(across.begin() + 30, across.end()),
        Object(2, Bytes().u16(4).u16(0), 5000000),
        Object(73, Bytes().u16(1).u16(0).u32(0).u8(0).u8(0).u8(2).u8(0).u32(0).u32(0x80).u16(0).u16(0).raw({7, 8}).zeros(6),
               6000000),
        Object(65, Bytes().zeros(8), 7000000),
    });
    const ReadOutcome r = Read(File({Container(first, 0), Container(second, 2)}));

    ExpectFrames(r, {Classic(kStart + 1, 0x123, {0xAA, 0xBB}), On(Remote(kStart + 50, 0x1ABCDEF0, 4, true), 1, Direction::Tx),
                     Classic(kStart + 3000, 0x100, {0, 1, 2, 3, 4, 5, 6, 7}),
                     On(Fd(kStart + 4000, 0x456, 12, true, true, 0x30), 2, Direction::Tx),
                     On(AsError(Classic(kStart + 5000, 0, {})), 3), AsError(Classic(kStart + 6000, 0x80, {7, 8}))});
    EXPECT_EQ(r.otherObjects, 2u);
    EXPECT_EQ(r.errorFrames, 2u);
}

TEST_F(BlfReading, DamageIsToldAndReadingGoesOn)
{
    auto frame = [](int k) { return Object(1, Message(1, 0, 1, 0x100 + k, {static_cast<std::uint8_t>(k)}), k * 1000000ull); };
    const std::vector<std::uint8_t> good = Join({frame(0), {'j', 'u', 'n', 'k', 0, 0, 0, 0, 0}, frame(1),
                                                 Object(1, Message(1, 0, 20, 0x1, {}), 0),   // DLC 20
                                                 Object(1, Message(0, 0, 1, 0x1, {}), 0),    // channel 0
                                                 Object(1, Message(1, 0, 1, 0x800, {}), 0)}); // 12 bits
    // A container whose data fails zlib's check: none of it is trusted.
    std::vector<std::uint8_t> broken = Container(Join({frame(6), frame(7)}), 2);
    broken[40] ^= 0xFF;
    const ReadOutcome r = Read(File({Container(good, 2), Container(frame(2), 7), broken, Container(frame(3), 2),
                                     Container(Join({frame(4), frame(5)}), 2, 8)}));
    const std::vector<Issue> expected = {
        {IssueKind::Corrupt, 2},           {IssueKind::InvalidDlc, 3},      {IssueKind::InvalidChannel, 4},
        {IssueKind::InvalidIdentifier, 5}, {IssueKind::Corrupt, 6},         {IssueKind::Corrupt, 6},
        {IssueKind::Truncated, 8},
    };
    EXPECT_EQ(r.issues, expected) << ::testing::PrintToString(r.messages);
    EXPECT_EQ(r.messages[0], "object 2: no object where one should start; 9 bytes passed over");
    EXPECT_EQ(r.messages[4], "object 6: a log container compressed by unknown method 7");
    std::vector<std::uint32_t> ids;
    for (const CanFrame& f : r.frames) ids.push_back(f.id);
    // The cut container still gives its first frame.
    EXPECT_EQ(ids, (std::vector<std::uint32_t>{0x100, 0x101, 0x103, 0x104}));
}

TEST_F(BlfReading, FilesThatAreNoBlf)
{
    std::string error;
    WriteText(m_dir.File("text.blf"), "(1.0) can0 123#01\n");
    EXPECT_FALSE(BlfReader::Open(m_dir.File("text.blf"), error));
    EXPECT_NE(error.find("is no BLF file"), std::string::npos) << error;
    WriteText(m_dir.File("cut.blf"), File({}).substr(0, 60));
    EXPECT_FALSE(BlfReader::Open(m_dir.File("cut.blf"), error));
    EXPECT_NE(error.find("ends inside its header"), std::string::npos) << error;
    // An empty file, and a header without objects: no frames, nothing wrong.
    for (const std::string& text : {std::string(), File({})}) {
        const ReadOutcome r = Read(text);
        EXPECT_TRUE(r.openError.empty()) << r.openError;
        EXPECT_TRUE(r.frames.empty());
        EXPECT_TRUE(r.issues.empty());
    }
}
