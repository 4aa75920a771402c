#include <gtest/gtest.h>

#include <string>

#include "veld_data_structures.h"

namespace {

bool IsInline(const VELDString& s)
{
    const char* object = reinterpret_cast<const char*>(&s);
    return s.Beginning() >= object && s.Beginning() < object + sizeof s;
}

std::string Repeat(char c, int n) { return std::string(static_cast<size_t>(n), c); }

}  // namespace

TEST(String, ShortTextStaysInsideTheObjectAndLongTextGoesToTheHeapBySteps)
{
    VELDString s39(Repeat('a', 39).c_str());
    EXPECT_TRUE(IsInline(s39));
    EXPECT_EQ(s39.GetCapacity(), 40);
    EXPECT_EQ(s39.Length(), 39);

    VELDString s40(Repeat('b', 40).c_str());
    EXPECT_FALSE(IsInline(s40));
    EXPECT_EQ(s40.GetCapacity(), 80);

    VELDString s79(Repeat('c', 79).c_str());
    EXPECT_EQ(s79.GetCapacity(), 120);

    VELDString empty;
    EXPECT_TRUE(IsInline(empty));
    EXPECT_EQ(empty.Length(), 0);
    EXPECT_STREQ(empty, "");
}

TEST(String, AppendingPastThirtyNineBytesMovesToAnEightyByteBlock)
{
    VELDString s(Repeat('x', 39).c_str());
    s += 'y';
    EXPECT_FALSE(IsInline(s));
    EXPECT_EQ(s.GetCapacity(), 80);
    EXPECT_EQ(s.Length(), 40);
    EXPECT_EQ(std::string(s), Repeat('x', 39) + "y");

    // Built byte by byte, the block grows once every 40 bytes.
    VELDString grown;
    int reallocations = 0;
    int capacity = grown.GetCapacity();
    for (int i = 0; i < 200; ++i) {
        grown += 'z';
        if (grown.GetCapacity() != capacity) {
            EXPECT_EQ(grown.GetCapacity(), capacity + 40);
            capacity = grown.GetCapacity();
            ++reallocations;
        }
    }
    EXPECT_EQ(reallocations, 5);
    EXPECT_EQ(std::string(grown), Repeat('z', 200));
}

TEST(String, AssignmentBackToShortTextReturnsToTheInlineBuffer)
{
    VELDString s(Repeat('a', 100).c_str());
    s = "short";
    EXPECT_TRUE(IsInline(s));
    EXPECT_EQ(s.GetCapacity(), 40);
    EXPECT_STREQ(s, "short");

    VELDString longer(Repeat('q', 45).c_str());
    s = longer;
    EXPECT_EQ(std::string(s), Repeat('q', 45));
    s = s;  // self-assignment keeps the text
    EXPECT_EQ(std::string(s), Repeat('q', 45));
    s = s.Beginning() + 40;  // text out of its own block
    EXPECT_STREQ(s, "qqqqq");
}

TEST(String, IndexReachesTheTerminatorAndThrowsBeyond)
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
}

TEST(String, EqualityWithNullAndWithTexts)
{
    VELDString empty, s("abc");
    EXPECT_TRUE(empty == static_cast<const char*>(nullptr));
    EXPECT_FALSE(s == static_cast<const char*>(nullptr));
    EXPECT_TRUE(s == "abc");
    EXPECT_FALSE(s == "ab");
    EXPECT_FALSE(s == "abcd");
    EXPECT_TRUE(s != "abd");
    EXPECT_TRUE(s == VELDString("abc"));
    EXPECT_FALSE(s == VELDString("abcd"));
}

TEST(String, NullTextCountsAsEmpty)
{
    VELDString s(static_cast<const char*>(nullptr));
    EXPECT_EQ(s.Length(), 0);
    s += static_cast<const char*>(nullptr);
    EXPECT_EQ(s.Length(), 0);
    VELDString t("x");
    EXPECT_STREQ(t + static_cast<const char*>(nullptr), "x");
}

TEST(String, ReserveConstructorSetsTheLengthOnlyWhenAsked)
{
    VELDString kept(50, true);
    EXPECT_EQ(kept.Length(), 50);
    EXPECT_EQ(kept[50], '\0');
    EXPECT_EQ(kept.GetCapacity(), 80);

    VELDString empty(50, false);
    EXPECT_EQ(empty.Length(), 0);
    EXPECT_EQ(empty.GetCapacity(), 80);

    VELDString negative(-5, true);
    EXPECT_EQ(negative.Length(), 0);
}

TEST(String, FindStrScansFromAPosition)
{
    VELDString s("abcabc");
    EXPECT_EQ(s.FindStr("bc", 0), 1);
    EXPECT_EQ(s.FindStr("bc", 2), 4);
    EXPECT_EQ(s.FindStr("bc", 5), -1);
    EXPECT_EQ(s.FindStr("", 0), -1);
    EXPECT_EQ(s.FindStr(static_cast<const char*>(nullptr), 0), -1);
    EXPECT_EQ(s.ReverseFindStr("abc"), 3);
}

TEST(String, SplitKeepsEmptyFields)
{
    VELDArray<VELDString> none = VELDString("").Split(',');
    ASSERT_EQ(none.Size(), 1);
    EXPECT_STREQ(none[0], "");

    VELDArray<VELDString> comma = VELDString(",").Split(',');
    ASSERT_EQ(comma.Size(), 2);
    EXPECT_STREQ(comma[0], "");
    EXPECT_STREQ(comma[1], "");

    VELDArray<VELDString> fields = VELDString("a,,b,").Split(',');
    ASSERT_EQ(fields.Size(), 4);
    EXPECT_STREQ(fields[0], "a");
    EXPECT_STREQ(fields[1], "");
    EXPECT_STREQ(fields[2], "b");
    EXPECT_STREQ(fields[3], "");

    VELDArray<VELDString> whole = VELDString("no separator").Split(';');
    ASSERT_EQ(whole.Size(), 1);
    EXPECT_STREQ(whole[0], "no separator");
}

TEST(String, ConcatenationOperatorsAndTheTokenCursor)
{
    VELDString a("left"), b("right");
    EXPECT_STREQ(a + b, "leftright");
    EXPECT_STREQ(a + "-", "left-");
    EXPECT_STREQ("-" + b, "-right");
    VELDString big = VELDString(Repeat('a', 30).c_str()) + VELDString(Repeat('b', 30).c_str());
    EXPECT_EQ(big.Length(), 60);
    EXPECT_EQ(big.GetCapacity(), 80);

    // The cursor travels with copies, not with assignment from text.
    VELDString words("one two three");
    VELDString token;
    ASSERT_TRUE(words.Token(" ", token));
    EXPECT_STREQ(token, "one");
    VELDString copy(words);
    ASSERT_TRUE(copy.Token(" ", token));
    EXPECT_STREQ(token, "two");
    VELDString viaNull = static_cast<const char*>(nullptr) + words;
    ASSERT_TRUE(viaNull.Token(" ", token));
    EXPECT_STREQ(token, "two");
    copy = "four five";
    ASSERT_TRUE(copy.Token(" ", token));
    EXPECT_STREQ(token, "four");
    EXPECT_STREQ(copy.Strtok(" "), "five");
    EXPECT_FALSE(copy.Token(" ", token));
}

TEST(String, PiecesAndEdits)
{
    VELDString s("module.output.x");
    EXPECT_STREQ(s.UpTo('.'), "module");
    EXPECT_STREQ(s.UpTo('.', true), "module.");
    EXPECT_STREQ(s.Tail('.'), "output.x");
    EXPECT_STREQ(s.Mid(7, 6), "output");
    EXPECT_STREQ(s.Mid(10, 100), "put.x");
    EXPECT_STREQ(s.Left(3), "mod");
    EXPECT_STREQ(s.Right(1), "x");
    EXPECT_STREQ(s.Part(0, 2), "mod");
    int pos = -1;
    EXPECT_TRUE(s.ReverseFind('.', pos));
    EXPECT_EQ(pos, 13);

    VELDString t("  Hello\r\n");
    t.RemoveCRLF();
    EXPECT_STREQ(t, "  Hello");
    t.RemoveSpaces();
    EXPECT_STREQ(t, "Hello");
    t.Uppercase();
    EXPECT_STREQ(t, "HELLO");
    t.Substitute('L', 'l');
    EXPECT_STREQ(t, "HEllO");
    t.Shorten(2);
    EXPECT_STREQ(t, "HEl");
    VELDString r;
    r.Reverse(t);
    EXPECT_STREQ(r, "lEH");
    r.Format("%05d", 42);
    EXPECT_STREQ(r, "00042");
    r.Format("%s!", Repeat('w', 150).c_str());
    EXPECT_EQ(r.Length(), 151);

    EXPECT_TRUE(VELDString("-12.5").IsNum());
    EXPECT_FALSE(VELDString("12a").IsNum());
    EXPECT_FALSE(VELDString("").IsNum());
    EXPECT_TRUE(VELDString("Name").StartsCaseWith("NA"));
    EXPECT_TRUE(VELDString("file.ASC").EndsCaseWith(".asc"));
    EXPECT_FALSE(VELDString("file.ASC").EndsWith(".asc"));
    EXPECT_TRUE(VELDString("abc") < VELDString("abd"));
    EXPECT_TRUE(VELDString("abc") < VELDString("abcd"));
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

TEST(String, MovedStringsKeepTheirText)
{
    VELDString heap(Repeat('h', 60).c_str());
    VELDString moved(static_cast<VELDString&&>(heap));
    EXPECT_EQ(std::string(moved), Repeat('h', 60));
    EXPECT_EQ(heap.Length(), 0);
    EXPECT_STREQ(heap, "");
    VELDString small("tiny");
    VELDString other(static_cast<VELDString&&>(small));
    EXPECT_STREQ(other, "tiny");
    EXPECT_TRUE(IsInline(other));
}
