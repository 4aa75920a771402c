#include <gtest/gtest.h>

#include <functional>

#include "veld_data_structures.h"

// What each sequence of insertions writes.
TEST(StreamedString, WritesWhatTheBaseFlagsAndTypesSay)
{
    const struct {
        const char* what;
        std::function<void(VELDStreamedString&)> write;
        const char* text;
    } cases[] = {
        {"base flags", [](VELDStreamedString& s) {
             s << 255 << ' ' << VELDSManip::hex << 255 << ' ' << VELDSManip::oct << 8 << ' ' << VELDSManip::dec << -3;
         }, "255 ff 10 -3"},
        {"hex wins over oct", [](VELDStreamedString& s) {
             s.m_fmtflags = 3;
             s << 255 << ' ' << 8L;
         }, "ff 8"},
        {"shorts in hex and oct", [](VELDStreamedString& s) {
             s << VELDSManip::hex << static_cast<short>(-1) << ' ' << VELDSManip::oct << static_cast<short>(-1);
         }, "ffff 177777"},
        {"shorts in decimal", [](VELDStreamedString& s) {
             s << static_cast<short>(-2) << ' ' << static_cast<unsigned short>(65535);
         }, "-2 65535"},
        {"wide and unsigned", [](VELDStreamedString& s) {
             s << -9000000000L << ' ' << 18000000000000000000UL << ' ' << 4000000000u;
         }, "-9000000000 18000000000000000000 4000000000"},
        {"wide in hex", [](VELDStreamedString& s) { s << VELDSManip::hex << -1L; }, "ffffffffffffffff"},
        {"floats", [](VELDStreamedString& s) { s << 1.5 << ' ' << 0.1f << ' ' << 1e20; }, "1.5 0.1000000015 1e+20"},
        {"floats ignore the base", [](VELDStreamedString& s) {
             s << VELDSManip::hex << 1.5 << ' ' << 0.1f << ' ' << 1e20;
         }, "1.5 0.1000000015 1e+20"},
        {"endl keeps the base", [](VELDStreamedString& s) {
             s << VELDSManip::hex << 10 << VELDSManip::endl << 11 << VELDSManip::ends;
         }, "a\nb"},
        {"fixed-base helpers ignore the flags", [](VELDStreamedString& s) {
             s.m_fmtflags = 2;
             s._printHex16(0xBEEF);
             s << ' ';
             s._printOct32(8);
             s << ' ';
             s._printHex64(0x1122334455667788UL);
         }, "beef 10 1122334455667788"},
        {"texts", [](VELDStreamedString& s) {
             s << "Component " << VELDString("can1") << ": " << static_cast<const char*>(nullptr) << "ok";
         }, "Component can1: ok"},
    };
    for (const auto& c : cases) {
        VELDStreamedString s;
        c.write(s);
        EXPECT_STREQ(s, c.text) << c.what;
    }
    EXPECT_EQ(VELDSManip::endl.value & VELDSManip::S_NUMERIC_MASK, 0);
    EXPECT_STREQ(VELDStreamedString("given"), "given");
    VELDString* base = new VELDStreamedString("via base");
    delete base;  // the destructor is virtual
}
