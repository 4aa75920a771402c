// The constant filters decide every connection of a diagram: a wrong bit here
// lets a wrong output into an input or keeps a right one out.
#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "veld_object_types.h"

using namespace VELD;

namespace {

struct FilterRow {
    const char* name;
    const VELDTypeFilterBase& filter;
    VELDTypeInfoValue mask, x, maskX;
};

// The three words of every constant filter, written out from the tables of
// types: family A (any of the bits of maskX, vectors included), family B (one
// single value x of one type) and FilterOneNumber.
const VELDTypeInfoValue kB = 0x80000000FFFFFFFFULL;
#define A(f, maskX) {#f, f, 0, 0, maskX}
#define B(f, x) {#f, f, kB, x, 0xFFFFFFFF}
const FilterRow kFilters[] = {
    A(FilterInteger, 0x2), A(FilterIntegers, 0x2), A(FilterInteger32, 0x2), A(FilterIntegers32, 0x2),
    A(FilterFloat, 0x4), A(FilterFloats, 0x4), A(FilterFloat64, 0x4), A(FilterDouble, 0x4), A(FilterFloats64, 0x4),
    A(FilterDoubles, 0x4), A(FilterInteger8, 0x100000), A(FilterIntegers8, 0x100000), A(FilterInteger16, 0x200000),
    A(FilterIntegers16, 0x200000), A(FilterInteger64, 0x8000), A(FilterIntegers64, 0x8000),
    A(FilterUnsignedInteger8, 0x1000), A(FilterUnsignedInteger16, 0x2000), A(FilterUnsignedInteger32, 0x4000),
    A(FilterUnsignedInteger64, 0x400000), A(FilterUnsignedIntegers8, 0x1000), A(FilterUnsignedIntegers16, 0x2000),
    A(FilterUnsignedIntegers32, 0x4000), A(FilterUnsignedIntegers64, 0x400000), A(FilterFloat32, 0x10000),
    A(FilterFloats32, 0x10000), A(FilterNumber, 0x71F006), A(FilterNumbers, 0x71F006), A(FilterAnyFloats, 0x10004),
    A(FilterAnyIntegers, 0x70F002), A(FilterSignedIntegers, 0x308002), A(FilterUnsignedIntegers, 0x407000),
    A(FilterUnsignedNumbers, 0x407000), A(FilterSignedNumbers, 0x318006), A(FilterStructure, 0x1),
    A(FilterDynamicStructure, 0x40000), A(FilterCustomType, 0x800000), A(FilterMatrix, 0x100),
    A(FilterRealObjects, 0x200), A(FilterDrawingObjects, 0x400), A(FilterTriangles3D, 0x800),
    A(FilterStream8, 0x1000), A(FilterStream16, 0x2000), A(FilterStream32, 0x4000), A(FilterAudioSignal, 0x20000),
    A(FilterCANFrame, 0x80), A(FilterCANFDFrame, 0x80000), A(FilterCANUniFrame, 0x1000000), A(FilterIplImage, 0x20),
    A(FilterVELDImage, 0x40), A(FilterTextAscii, 0x8), A(FilterTextUTF8, 0x8), A(FilterTextUnicode, 0x10),
    A(FilterTextUTF16, 0x10), A(FilterImage, 0x60), A(FilterAnyCANFrame, 0x1080080), A(FilterAudioSignals, 0x31000),
    A(FilterAny, 0xFFFFFFFF), B(FilterOneInteger, 0x2), B(FilterOneFloat, 0x4), B(FilterOneInteger8, 0x100000),
    B(FilterOneInteger16, 0x200000), B(FilterOneInteger32, 0x2), B(FilterOneInteger64, 0x8000),
    B(FilterOneUnsignedInteger8, 0x1000), B(FilterOneUnsignedInteger16, 0x2000),
    B(FilterOneUnsignedInteger32, 0x4000), B(FilterOneUnsignedInteger64, 0x400000), B(FilterOneFloat64, 0x4),
    B(FilterOneDouble, 0x4), B(FilterOneFloat32, 0x10000),
    {"FilterOneNumber", FilterOneNumber, 0x8000000000000000ULL, 0, 0x71F006},
};

// The matching rule, written independently of the class: exact bits under
// mask, at least one bit of maskX.
bool Accepts(const FilterRow& row, VELDTypeInfoValue type)
{
    return ((row.x ^ type) & row.mask) == 0 && (type & row.maskX) != 0;
}

}  // namespace

// A host reads the three words of a package's filters as they stand.
TEST(ConstantFilters, HoldTheirTableValuesAndAcceptExactlyWhatTheRuleSays)
{
    for (const FilterRow& row : kFilters)
        EXPECT_EQ(std::make_tuple(row.filter.mask, row.filter.x, row.filter.maskX, row.filter.nameFilter,
                                  row.filter.unitFilter),
                  std::make_tuple(row.mask, row.x, row.maskX, nullptr, nullptr))
            << row.name;
    std::vector<VELDTypeInfoValue> types = {0, AnyType, Integer | Float};
    for (int bit = 0; bit < 25; ++bit) {
        types.push_back(1ULL << bit);
        types.push_back((1ULL << bit) | VectorFlag);
        types.push_back((1ULL << bit) | IgnoreNameFlag | IgnoreUnitFlag);
    }
    for (const FilterRow& row : kFilters)
        for (VELDTypeInfoValue type : types)
            EXPECT_EQ(row.filter.Match(VELDTypeInfo(type)), Accepts(row, type))
                << row.name << " with type 0x" << std::hex << type;
    EXPECT_TRUE(TypeFilter(VELDTypeInfo(Integer), FilterInteger));
    EXPECT_FALSE(TypeFilter(VELDTypeInfo(Integer | VectorFlag), FilterOneInteger));
}

TEST(TypeFilter, NameAndUnitExpressions)
{
    VELDTypeFilterBase byName(0, 0, TypeMask, "^CAN", nullptr);
    EXPECT_FALSE(byName.Match(VELDTypeInfo(Structure)));  // no name at all
    EXPECT_TRUE(byName.Match(VELDTypeInfo(Structure, "CANFD", nullptr)));
    EXPECT_FALSE(byName.Match(VELDTypeInfo(Structure, "LIN", nullptr)));
    EXPECT_TRUE(byName.Match(VELDTypeInfo(Structure | IgnoreNameFlag)));  // the name isn't looked at
    VELDTypeFilterBase byUnit(0, 0, TypeMask, nullptr, "^m/s$");
    EXPECT_TRUE(byUnit.Match(VELDTypeInfo(Float, nullptr, "m/s")));
    EXPECT_FALSE(byUnit.Match(VELDTypeInfo(Float, nullptr, "km/h")));
    EXPECT_TRUE(byUnit.Match(VELDTypeInfo(Float | IgnoreUnitFlag, nullptr, "km/h")));
    // Bits are tested after the name: a good name does not save a bad type.
    EXPECT_FALSE(VELDTypeFilterBase(0, 0, Integer, "^CAN").Match(VELDTypeInfo(Float, "CAN", nullptr)));
}

TEST(TypeFilter, EqualityComparesMasksAndNeverFiltersWithExpressions)
{
    EXPECT_TRUE(FilterInteger == FilterIntegers);
    EXPECT_FALSE(FilterInteger == FilterOneInteger);
    VELDTypeFilterBase named(0, 0, TypeMask, "^x");
    VELDTypeFilterBase same(named);
    EXPECT_FALSE(named == same);
    EXPECT_FALSE(named == named);
    EXPECT_TRUE(named != FilterAny);
}

TEST(TypeInfo, CopiesOwnTheirTexts)
{
    VELDTypeInfo a(CANFrame, "frame", "bytes");
    VELDTypeInfo b(a);
    a.SetName("changed");
    EXPECT_STREQ(b.Name(), "frame");
    b = a;
    EXPECT_STREQ(b.Name(), "changed");
    EXPECT_STREQ(b.Unit(), "bytes");
    VELDTypeInfo none;
    EXPECT_EQ(none.Name(), nullptr);
    none.SetUnit(nullptr);
    EXPECT_STREQ(none.Unit(), "");
}
