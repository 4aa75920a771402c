// The framework's string: its inline buffer and growth by 40-byte steps, and
// what each operation gives for ordinary and odd input (null, empty, past
// the end).
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <tuple>
#include <vector>

#include "veld_data_structures.h"

namespace {

bool IsInline(const VELDString& s)
{
    const char* object = reinterpret_cast<const char*>(&s);
    return s.Beginning() >= object && s.Beginning() < object + sizeof s;
}

std::string Repeat(char c, int n) { return std::string(static_cast<size_t>(n), c); }

const char* const kNull = nullptr;

// Each answer beside the one expected, told by its place.
void ExpectAll(const std::vector<std::pair<bool, bool>>& answers)
{
    for (size_t i = 0; i < answers.size(); ++i) EXPECT_EQ(answers[i].first, answers[i].second) << "answer " << i;
}

}  // namespace

TEST(String, ShortTextStaysInsideTheObjectAndLongTextGoesToTheHeapBySteps)
{
    const struct {
        std::string text;
        bool inlined;
        int capacity;
    } cases[] = {{"", true, 40}, {Repeat('a', 39), true, 40}, {Repeat('b', 40), false, 80}, {Repeat('c', 79), false, 120}};
    for (const auto& c : cases) {
        const VELDString s(c.text.c_str());
        EXPECT_EQ(IsInline(s), c.inlined) << c.text.size();
        EXPECT_EQ(s.GetCapacity(), c.capacity) << c.text.size();
        EXPECT_EQ(s.Length(), static_cast<int>(c.text.size()));
        EXPECT_EQ(std::string(s), c.text);
    }
    // Past 39 bytes by appending: an 80-byte block, then one 40 bytes larger
    // each time it is full.
    VELDString s(Repeat('x', 39).c_str());
    s += 'y';
    EXPECT_FALSE(IsInline(s));
    EXPECT_EQ(s.GetCapacity(), 80);
    EXPECT_EQ(std::string(s), Repeat('x', 39) + "y");
    VELDString grown;
    std::vector<int> capacities = {grown.GetCapacity()};
    for (int i = 0; i < 200; ++i) {
        grown += 'z';
        if (grown.GetCapacity() != capacities.back()) capacities.push_back(grown.GetCapacity());
    }
    EXPECT_EQ(capacities, (std::vector<int>{40, 80, 120, 160, 200, 240}));
    EXPECT_EQ(std::string(grown), Repeat('z', 200));
    // The reserving constructor sets the length only when asked.
    const VELDString kept(50, true), reserved(50, false), negative(-5, true);
    EXPECT_EQ(std::make_tuple(kept.Length(), kept[50], kept.GetCapacity()), std::make_tuple(50, '\0', 80));
    EXPECT_EQ(std::make_tuple(reserved.Length(), reserved.GetCapacity(), negative.Length()), std::make_tuple(0, 80, 0));
}

TEST(String, AssignmentAndMovesKeepTheTextAndReturnToTheInlineBuffer)
{
    VELDString s(Repeat('a', 100).c_str());
    s = "short";
    EXPECT_TRUE(IsInline(s));
    EXPECT_EQ(s.GetCapacity(), 40);
    EXPECT_STREQ(s, "short");
    s = VELDString(Repeat('q', 45).c_str());
    s = s;  // self-assignment keeps the text
    EXPECT_EQ(std::string(s), Repeat('q', 45));
    s = s.Beginning() + 40;  // text out of its own block
    EXPECT_STREQ(s, "qqqqq");

    VELDString heap(Repeat('h', 60).c_str());
    VELDString moved(static_cast<VELDString&&>(heap));
    EXPECT_EQ(std::string(moved), Repeat('h', 60));
    EXPECT_EQ(std::make_tuple(heap.Length(), std::string(heap)), std::make_tuple(0, ""));
    VELDString small("tiny");
    VELDString other(static_cast<VELDString&&>(small));
    EXPECT_STREQ(other, "tiny");
    EXPECT_TRUE(IsInline(other));
}

TEST(String, IndexEqualityAndNullText)
{
    VELDString s("abc");
    EXPECT_EQ(s[0], 'a');
    EXPECT_EQ(s[3], '\0');
    try {
        (void)s[4];
        FAIL() << "no throw past the terminator";
    } catch (const char* text) {
        EXPECT_STREQ(text, "Index out of bounds");
    }
    EXPECT_THROW((void)s[-1], const char*);

    const VELDString empty;
    ExpectAll({{empty == kNull, true}, {s == kNull, false}, {s == "abc", true}, {s == "ab", false},
               {s == "abcd", false}, {s != "abd", true}, {s == VELDString("abc"), true},
               {s == VELDString("abcd"), false}});

    VELDString null(kNull);
    null += kNull;
    EXPECT_EQ(null.Length(), 0);
    EXPECT_STREQ(VELDString("x") + kNull, "x");
}

TEST(String, SearchSplitAndPieces)
{
    VELDString abc("abcabc");
    const struct {
        const char* needle;
        int from, at;
    } finds[] = {{"bc", 0, 1}, {"bc", 2, 4}, {"bc", 5, -1}, {"", 0, -1}, {nullptr, 0, -1}};
    for (const auto& f : finds) EXPECT_EQ(abc.FindStr(f.needle, f.from), f.at) << (f.needle ? f.needle : "null");
    EXPECT_EQ(abc.ReverseFindStr("abc"), 3);

    // Empty fields are kept.
    const struct {
        const char* text;
        char separator;
        std::vector<std::string> fields;
    } splits[] = {{"", ',', {""}}, {",", ',', {"", ""}}, {"a,,b,", ',', {"a", "", "b", ""}},
                  {"no separator", ';', {"no separator"}}};
    for (const auto& c : splits) {
        VELDArray<VELDString> fields = VELDString(c.text).Split(c.separator);
        std::vector<std::string> got;
        for (int i = 0; i < fields.Size(); ++i) got.push_back(fields[i].Beginning());
        EXPECT_EQ(got, c.fields) << '"' << c.text << '"';
    }

    VELDString s("module.output.x"), a("left"), b("right");
    const VELDString big = VELDString(Repeat('a', 30).c_str()) + VELDString(Repeat('b', 30).c_str());
    const std::pair<VELDString, const char*> pieces[] = {
        {s.UpTo('.'), "module"}, {s.UpTo('.', true), "module."}, {s.Tail('.'), "output.x"}, {s.Mid(7, 6), "output"},
        {s.Mid(10, 100), "put.x"}, {s.Left(3), "mod"}, {s.Right(1), "x"}, {s.Part(0, 2), "mod"},
        {a + b, "leftright"}, {a + "-", "left-"}, {"-" + b, "-right"},
    };
    for (const auto& p : pieces) EXPECT_STREQ(p.first, p.second);
    EXPECT_EQ(big.Length(), 60);
    EXPECT_EQ(big.GetCapacity(), 80);
    int pos = -1;
    EXPECT_TRUE(s.ReverseFind('.', pos));
    EXPECT_EQ(pos, 13);

    ExpectAll({{VELDString("-12.5").IsNum(), true}, {VELDString("12a").IsNum(), false}, {VELDString("").IsNum(), false},
               {VELDString("Name").StartsCaseWith("NA"), true}, {VELDString("file.ASC").EndsCaseWith(".asc"), true},
               {VELDString("file.ASC").EndsWith(".asc"), false}, {VELDString("abc") < VELDString("abd"), true},
               {VELDString("abc") < VELDString("abcd"), true}});
}

TEST(String, EditsInPlace)
{
    // Each edit works on what the one before left.
    const struct {
        std::function<void(VELDString&)> edit;
        std::string after;
    } edits[] = {
        {[](VELDString& t) { t.RemoveCRLF(); }, "  Hello"},
        {[](VELDString& t) { t.RemoveSpaces(); }, "Hello"},
        {[](VELDString& t) { t.Uppercase(); }, "HELLO"},
        {[](VELDString& t) { t.Substitute('L', 'l'); }, "HEllO"},
        {[](VELDString& t) { t.Shorten(2); }, "HEl"},
        {[](VELDString& t) { VELDString r; r.Reverse(t); t = r; }, "lEH"},
        {[](VELDString& t) { t.Format("%05d", 42); }, "00042"},
        {[](VELDString& t) { t.Format("%s!", Repeat('w', 150).c_str()); }, Repeat('w', 150) + "!"},
    };
    VELDString t("  Hello\r\n");
    for (const auto& e : edits) {
        e.edit(t);
        EXPECT_EQ(std::string(t), e.after);
    }
}

TEST(String, TheTokenCursorTravelsWithCopiesNotWithAssignmentFromText)
{
    VELDString words("one two three"), token;
    ASSERT_TRUE(words.Token(" ", token));
    EXPECT_STREQ(token, "one");
    VELDString copy(words);
    ASSERT_TRUE(copy.Token(" ", token));
    EXPECT_STREQ(token, "two");
    VELDString viaNull = kNull + words;
    ASSERT_TRUE(viaNull.Token(" ", token));
    EXPECT_STREQ(token, "two");
    copy = "four five";
    ASSERT_TRUE(copy.Token(" ", token));
    EXPECT_STREQ(token, "four");
    EXPECT_STREQ(copy.Strtok(" "), "five");
    EXPECT_FALSE(copy.Token(" ", token));
}

TEST(String, Utf8CharacterWalk)
{
    VELDString s("a\xC3\xA9z");  // a, e acute, z
    s.InitNextChar(true);
    EXPECT_EQ(s.NextChar(true), 'a');
    bool ok = false;
    EXPECT_EQ(s.NextChar(true, true, &ok), 0xE9u);
    EXPECT_TRUE(ok);
    EXPECT_EQ(s.CharPos(true), 2);
    EXPECT_EQ(s.CharPos(false), 3);
    EXPECT_EQ(s.NextChar(true), 'z');
    EXPECT_EQ(s.NextChar(true), 0u);
}
