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

std::string U8(int v) { return std::string(1, static_cast<char>(v)); }
std::string Zeros(std::size_t n) { return std::string(n, '\0'); }

std::string Counting(int n, int first = 0)
{
    std::string v;
    for (int i = 0; i < n; ++i) v += U8(first + i);
    return v;
}

// An object with a version 1 header (times in ns) or a version 2 one (in
// 10 us), padded with (size % 4) bytes, or as many as `padding` says.
std::string Object(std::uint32_t type, const std::string& body, std::uint64_t time, int version = 1, int padding = -1)
{
    const std::size_t size = (version == 1 ? 32 : 40) + body.size();
    return "LOBJ" + U16(version == 1 ? 32 : 40) + U16(version) + U32(size) + U32(type) + U32(3 - version) + U32(0) +
           U64(time) + (version == 2 ? U64(0) : "") + body + Zeros(padding < 0 ? size % 4 : padding);
}

// A log container of `data`, stored (method 0), compressed (2) or by an
// unknown method; its last `cut` bytes cut off.
std::string Container(const std::string& data, int method, std::size_t cut = 0)
{
    std::string stored = data;
    if (method == 2) {
        uLongf n = compressBound(static_cast<uLong>(data.size()));
        stored.resize(n);
        compress(reinterpret_cast<Bytef*>(stored.data()), &n, reinterpret_cast<const Bytef*>(data.data()),
                 static_cast<uLong>(data.size()));
        stored.resize(n);
    }
    const std::size_t size = 32 + stored.size();
    const std::string o = "LOBJ" + U16(16) + U16(1) + U32(size) + U32(10) + U16(method) + Zeros(6) + U32(data.size()) +
                          Zeros(4) + stored + Zeros(size % 4);
    return o.substr(0, o.size() - cut);
}

// Start 2023-11-14 22:13:20.123 (read as UTC here); stop unused.
std::string File(const std::string& containers = "")
{
    return "LOGG" + U32(144) + Zeros(32) + U16(2023) + U16(11) + U16(2) + U16(14) + U16(22) + U16(13) + U16(20) +
           U16(123) + Zeros(16 + 72) + containers;
}

// Body of a CAN message (type 1 or 86).
std::string Message(int channel, int flags, int dlc, std::uint32_t id, std::string data, bool newer = false)
{
    data.resize(8);
    return U16(channel) + U8(flags) + U8(dlc) + U32(id) + data + Zeros(newer ? 8 : 0);
}

// Body of a CAN FD message 64 (type 101).
std::string Fd64(int channel, int dlc, std::uint32_t id, std::uint32_t flags, int direction, const std::string& data)
{
    return U8(channel) + U8(dlc) + U8(data.size()) + U8(0) + U32(id) + U32(0) + U32(flags) + Zeros(18) + U8(direction) +
           U8(0) + U32(0) + data;
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
    const std::string across = Object(101, Fd64(3, 9, 0x456, 0x7000, 1, Counting(12, 0x30)), 4000000);
    const std::string first =
        Object(1, Message(1, 0, 2, 0x123, "\xAA\xBB"), 1000) + Object(86, Message(2, 0x81, 4, 0x80000000 | 0x1ABCDEF0, "", true), 5, 2) +
        Object(96, Zeros(49), 0, 1, 3) +  // a marker: another kind of object
        // The older FD object without EDL: a classic frame on an FD channel.
        Object(100, U16(1) + U8(0) + U8(8) + U32(0x100) + Zeros(5) + U8(0) + U8(8) + Zeros(5) + Counting(64), 3000000) +
        across.substr(0, 30);
    const std::string second =
        across.substr(30) + Object(2, U16(4) + U16(0), 5000000) +
        Object(73, U16(1) + U16(0) + U32(0) + U8(0) + U8(0) + U8(2) + U8(0) + U32(0) + U32(0x80) + U32(0) + "\x07\x08" + Zeros(6),
               6000000) +
        Object(65, Zeros(8), 7000000);
    const ReadOutcome r = Read(File(Container(first, 0) + Container(second, 2)));

    ExpectFrames(r, {Classic(kStart + 1, 0x123, {0xAA, 0xBB}), On(Remote(kStart + 50, 0x1ABCDEF0, 4, true), 1, Direction::Tx),
                     Classic(kStart + 3000, 0x100, {0, 1, 2, 3, 4, 5, 6, 7}),
                     On(Fd(kStart + 4000, 0x456, 12, true, true, 0x30), 2, Direction::Tx),
                     On(AsError(Classic(kStart + 5000, 0, {})), 3), AsError(Classic(kStart + 6000, 0x80, {7, 8}))});
    EXPECT_EQ(r.otherObjects, 2u);
    EXPECT_EQ(r.errorFrames, 2u);
}

TEST_F(BlfReading, DamageIsToldAndReadingGoesOn)
{
    auto frame = [](int k) { return Object(1, Message(1, 0, 1, 0x100 + k, U8(k)), k * 1000000ull); };
    const std::string good = frame(0) + "junk" + Zeros(5) + frame(1) + Object(1, Message(1, 0, 20, 0x1, ""), 0) +  // DLC 20
                             Object(1, Message(0, 0, 1, 0x1, ""), 0) +                                         // channel 0
                             Object(1, Message(1, 0, 1, 0x800, ""), 0);                                        // 12 bits
    // A container whose data fails zlib's check: none of it is trusted.
    std::string broken = Container(frame(6) + frame(7), 2);
    broken[40] ^= 0xFF;
    const ReadOutcome r = Read(File(Container(good, 2) + Container(frame(2), 7) + broken + Container(frame(3), 2) +
                                    Container(frame(4) + frame(5), 2, 8)));
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
    WriteText(m_dir.File("cut.blf"), File().substr(0, 60));
    EXPECT_FALSE(BlfReader::Open(m_dir.File("cut.blf"), error));
    EXPECT_NE(error.find("ends inside its header"), std::string::npos) << error;
    // An empty file, and a header without objects: no frames, nothing wrong.
    for (const std::string& text : {std::string(), File()}) {
        const ReadOutcome r = Read(text);
        EXPECT_TRUE(r.openError.empty()) << r.openError;
        EXPECT_TRUE(r.frames.empty());
        EXPECT_TRUE(r.issues.empty());
    }
}
