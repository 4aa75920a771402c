#include <gtest/gtest.h>

#include <string>

#include "veld_os_helpers.h"

TEST(Iconv, NullInputsGiveNullOrFalseAndInvalidInputGivesNull)
{
    EXPECT_EQ(VELDIconv::localeToUTF8(nullptr), nullptr);
    EXPECT_EQ(VELDIconv::UTF8ToLocale(nullptr), nullptr);
    EXPECT_EQ(VELDIconv::UTF8ToWide(nullptr), nullptr);
    VELDString untouched("keep");
    EXPECT_FALSE(VELDIconv::localeToUTF8(nullptr, untouched));
    EXPECT_STREQ(untouched, "keep");
    VELDIconv::releaseLocale(nullptr);
    VELDIconv::releaseWide(nullptr);
    VELDIconv::releaseUTF8(nullptr);

    VELDIconvHandle* handle = VELDIconv::open("UTF-8", "ISO-8859-1");
    ASSERT_NE(handle, nullptr);
    EXPECT_EQ(VELDIconv::convert(handle, "\xC3", 1), nullptr);  // a lead byte without its follower
    VELDIconv::close(handle);
}

TEST(Iconv, ConversionsGrowTheirOutputBlockUntilItFits)
{
    // Latin-1 to UTF-8 doubles these bytes: the first block is too small.
    VELDIconvHandle* handle = VELDIconv::open("ISO-8859-1", "UTF-8");
    ASSERT_NE(handle, nullptr);
    const char latin1[] = "\xE9\xE9\xE9\xE9";
    char* utf8 = VELDIconv::convert(handle, latin1, sizeof latin1);
    ASSERT_NE(utf8, nullptr);
    EXPECT_STREQ(utf8, "\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9");
    VELDIconv::releaseUTF8(utf8);
    VELDIconv::close(handle);
}

TEST(StringHelper, AsciiRoundTripsThroughTheLocalePairAndTheHelpers)
{
    char* block = VELDIconv::UTF8ToLocale("channel 1");
    ASSERT_NE(block, nullptr);
    EXPECT_STREQ(block, "channel 1");
    VELDIconv::releaseLocale(block);
    VELDString out;
    ASSERT_TRUE(VELDIconv::localeToUTF8("plain text", out));
    EXPECT_STREQ(out, "plain text");
    EXPECT_EQ(VELDStringHelper::UTF8ToLocale("abc"), "abc");
    EXPECT_STREQ(VELDStringHelper::LocaleToUTF8(std::string("xyz")), "xyz");
    EXPECT_STREQ(VELDStringHelper::LocaleToUTF8(static_cast<const char*>(nullptr)), "");
}
