#include <gtest/gtest.h>

#include "veld_data_structures.h"

TEST(StreamedString, NumbersFollowTheBaseFlags)
{
    VELDStreamedString s;
    s << 255 << ' ' << VELDSManip::hex << 255 << ' ' << VELDSManip::oct << 8 << ' ' << VELDSManip::dec << -3;
    EXPECT_STREQ(s, "255 ff 10 -3");
}

TEST(StreamedString, HexWinsWhenBothBaseBitsAreSet)
{
    VELDStreamedString s;
    s.m_fmtflags = 3;
    s << 255 << ' ' << 8L;
    EXPECT_STREQ(s, "ff 8");
}

TEST(StreamedString, ShortsPrintTheirSixteenBitPattern)
{
    VELDStreamedString s;
    s << VELDSManip::hex << static_cast<short>(-1) << ' ' << VELDSManip::oct << static_cast<short>(-1);
    EXPECT_STREQ(s, "ffff 177777");
    VELDStreamedString d;
    d << static_cast<short>(-2) << ' ' << static_cast<unsigned short>(65535);
    EXPECT_STREQ(d, "-2 65535");
}

TEST(StreamedString, WideIntegersAndUnsigned)
{
    VELDStreamedString s;
    s << -9000000000L << ' ' << 18000000000000000000UL << ' ' << 4000000000u;
    EXPECT_STREQ(s, "-9000000000 18000000000000000000 4000000000");
    VELDStreamedString h;
    h << VELDSManip::hex << -1L;
    EXPECT_STREQ(h, "ffffffffffffffff");
}

TEST(StreamedString, FloatsIgnoreTheBase)
{
    VELDStreamedString dec, hex;
    dec << 1.5 << ' ' << 0.1f << ' ' << 1e20;
    hex << VELDSManip::hex << 1.5 << ' ' << 0.1f << ' ' << 1e20;
    EXPECT_STREQ(dec, hex);
    EXPECT_STREQ(dec, "1.5 0.1000000015 1e+20");
}

TEST(StreamedString, EndlAppendsALineAndKeepsTheBase)
{
    VELDStreamedString s;
    s << VELDSManip::hex << 10 << VELDSManip::endl << 11 << VELDSManip::ends;
    EXPECT_STREQ(s, "a\nb");
    EXPECT_EQ(VELDSManip::endl.value & VELDSManip::S_NUMERIC_MASK, 0);
}

TEST(StreamedString, FixedBaseHelpersIgnoreTheFlags)
{
    VELDStreamedString s;
    s.m_fmtflags = 2;
    s._printHex16(0xBEEF);
    s << ' ';
    s._printOct32(8);
    s << ' ';
    s._printHex64(0x1122334455667788UL);
    EXPECT_STREQ(s, "beef 10 1122334455667788");
}

TEST(StreamedString, TextAndStringsAppend)
{
    VELDStreamedString s("Component ");
    VELDString name("can1");
    s << name << ": " << static_cast<const char*>(nullptr) << "ok";
    EXPECT_STREQ(s, "Component can1: ok");
    VELDString* base = new VELDStreamedString("via base");
    delete base;  // the destructor is virtual
}
