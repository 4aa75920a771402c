// The constant filters decide every connection of a diagram: a wrong bit here
// lets a wrong output into an input or keeps a right one out.
#include <gtest/gtest.h>

#include <string>
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
// types: family A (any of a set of bits, vectors included), family B (one
// single value of one type) and FilterOneNumber.
const VELDTypeInfoValue kB = 0x80000000FFFFFFFFULL;
const FilterRow kFilters[] = {
    {"FilterInteger", FilterInteger, 0, 0, 0x2},
    {"FilterIntegers", FilterIntegers, 0, 0, 0x2},
    {"FilterInteger32", FilterInteger32, 0, 0, 0x2},
    {"FilterIntegers32", FilterIntegers32, 0, 0, 0x2},
    {"FilterFloat", FilterFloat, 0, 0, 0x4},
    {"FilterFloats", FilterFloats, 0, 0, 0x4},
    {"FilterFloat64", FilterFloat64, 0, 0, 0x4},
    {"FilterDouble", FilterDouble, 0, 0, 0x4},
    {"FilterFloats64", FilterFloats64, 0, 0, 0x4},
    {"FilterDoubles", FilterDoubles, 0, 0, 0x4},
    {"FilterInteger8", FilterInteger8, 0, 0, 0x100000},
    {"FilterIntegers8", FilterIntegers8, 0, 0, 0x100000},
    {"FilterInteger16", FilterInteger16, 0, 0, 0x200000},
    {"FilterIntegers16", FilterIntegers16, 0, 0, 0x200000},
    {"FilterInteger64", FilterInteger64, 0, 0, 0x8000},
    {"FilterIntegers64", FilterIntegers64, 0, 0, 0x8000},
    {"FilterUnsignedInteger8", FilterUnsignedInteger8, 0, 0, 0x1000},
    {"FilterUnsignedInteger16", FilterUnsignedInteger16, 0, 0, 0x2000},
    {"FilterUnsignedInteger32", FilterUnsignedInteger32, 0, 0, 0x4000},
    {"FilterUnsignedInteger64", FilterUnsignedInteger64, 0, 0, 0x400000},
    {"FilterUnsignedIntegers8", FilterUnsignedIntegers8, 0, 0, 0x1000},
    {"FilterUnsignedIntegers16", FilterUnsignedIntegers16, 0, 0, 0x2000},
    {"FilterUnsignedIntegers32", FilterUnsignedIntegers32, 0, 0, 0x4000},
    {"FilterUnsignedIntegers64", FilterUnsignedIntegers64, 0, 0, 0x400000},
    {"FilterFloat32", FilterFloat32, 0, 0, 0x10000},
    {"FilterFloats32", FilterFloats32, 0, 0, 0x10000},
    {"FilterNumber", FilterNumber, 0, 0, 0x71F006},
    {"FilterNumbers", FilterNumbers, 0, 0, 0x71F006},
    {"FilterAnyFloats", FilterAnyFloats, 0, 0, 0x10004},
    {"FilterAnyIntegers", FilterAnyIntegers, 0, 0, 0x70F002},
    {"FilterSignedIntegers", FilterSignedIntegers, 0, 0, 0x308002},
    {"FilterUnsignedIntegers", FilterUnsignedIntegers, 0, 0, 0x407000},
    {"FilterUnsignedNumbers", FilterUnsignedNumbers, 0, 0, 0x407000},
    {"FilterSignedNumbers", FilterSignedNumbers, 0, 0, 0x318006},
    {"FilterStructure", FilterStructure, 0, 0, 0x1},
    {"FilterDynamicStructure", FilterDynamicStructure, 0, 0, 0x40000},
    {"FilterCustomType", FilterCustomType, 0, 0, 0x800000},
    {"FilterMatrix", FilterMatrix, 0, 0, 0x100},
    {"FilterRealObjects", FilterRealObjects, 0, 0, 0x200},
    {"FilterDrawingObjects", FilterDrawingObjects, 0, 0, 0x400},
    {"FilterTriangles3D", FilterTriangles3D, 0, 0, 0x800},
    {"FilterStream8", FilterStream8, 0, 0, 0x1000},
    {"FilterStream16", FilterStream16, 0, 0, 0x2000},
    {"FilterStream32", FilterStream32, 0, 0, 0x4000},
    {"FilterAudioSignal", FilterAudioSignal, 0, 0, 0x20000},
    {"FilterCANFrame", FilterCANFrame, 0, 0, 0x80},
    {"FilterCANFDFrame", FilterCANFDFrame, 0, 0, 0x80000},
    {"FilterCANUniFrame", FilterCANUniFrame, 0, 0, 0x1000000},
    {"FilterIplImage", FilterIplImage, 0, 0, 0x20},
    {"FilterVELDImage", FilterVELDImage, 0, 0, 0x40},
    {"FilterTextAscii", FilterTextAscii, 0, 0, 0x8},
    {"FilterTextUTF8", FilterTextUTF8, 0, 0, 0x8},
    {"FilterTextUnicode", FilterTextUnicode, 0, 0, 0x10},
    {"FilterTextUTF16", FilterTextUTF16, 0, 0, 0x10},
    {"FilterImage", FilterImage, 0, 0, 0x60},
    {"FilterAnyCANFrame", FilterAnyCANFrame, 0, 0, 0x1080080},
    {"FilterAudioSignals", FilterAudioSignals, 0, 0, 0x31000},
    {"FilterAny", FilterAny, 0, 0, 0xFFFFFFFF},
    {"FilterOneInteger", FilterOneInteger, kB, 0x2, 0xFFFFFFFF},
    {"FilterOneFloat", FilterOneFloat, kB, 0x4, 0xFFFFFFFF},
    {"FilterOneInteger8", FilterOneInteger8, kB, 0x100000, 0xFFFFFFFF},
    {"FilterOneInteger16", FilterOneInteger16, kB, 0x200000, 0xFFFFFFFF},
    {"FilterOneInteger32", FilterOneInteger32, kB, 0x2, 0xFFFFFFFF},
    {"FilterOneInteger64", FilterOneInteger64, kB, 0x8000, 0xFFFFFFFF},
    {"FilterOneUnsignedInteger8", FilterOneUnsignedInteger8, kB, 0x1000, 0xFFFFFFFF},
    {"FilterOneUnsignedInteger16", FilterOneUnsignedInteger16, kB, 0x2000, 0xFFFFFFFF},
    {"FilterOneUnsignedInteger32", FilterOneUnsignedInteger32, kB, 0x4000, 0xFFFFFFFF},
    {"FilterOneUnsignedInteger64", FilterOneUnsignedInteger64, kB, 0x400000, 0xFFFFFFFF},
    {"FilterOneFloat64", FilterOneFloat64, kB, 0x4, 0xFFFFFFFF},
    {"FilterOneDouble", FilterOneDouble, kB, 0x4, 0xFFFFFFFF},
    {"FilterOneFloat32", FilterOneFloat32, kB, 0x10000, 0xFFFFFFFF},
    {"FilterOneNumber", FilterOneNumber, 0x8000000000000000ULL, 0, 0x71F006},
};

// The matching rule, written independently of the class: exact bits under
// mask, at least one bit of maskX.
bool Accepts(const FilterRow& row, VELDTypeInfoValue type)
{
    return ((row.x ^ type) & row.mask) == 0 && (type & row.maskX) != 0;
}

}  // namespace

TEST(ConstantFilters, HoldTheirTableValues)
{
    for (const FilterRow& row : kFilters) {
        EXPECT_EQ(row.filter.mask, row.mask) << row.name;
        EXPECT_EQ(row.filter.x, row.x) << row.name;
        EXPECT_EQ(row.filter.maskX, row.maskX) << row.name;
        EXPECT_EQ(row.filter.nameFilter, nullptr) << row.name;
        EXPECT_EQ(row.filter.unitFilter, nullptr) << row.name;
    }
    EXPECT_EQ(sizeof kFilters / sizeof kFilters[0], 72u);
}

TEST(ConstantFilters, AcceptExactlyWhatTheRuleSays)
{
    std::vector<VELDTypeInfoValue> types;
    for (int bit = 0; bit < 25; ++bit) {
        types.push_back(1ULL << bit);
        types.push_back((1ULL << bit) | VectorFlag);
        types.push_back((1ULL << bit) | IgnoreNameFlag | IgnoreUnitFlag);
    }
    types.push_back(0);
    types.push_back(AnyType);
    types.push_back(Integer | Float);
    for (const FilterRow& row : kFilters)
        for (VELDTypeInfoValue type : types)
            EXPECT_EQ(row.filter.Match(VELDTypeInfo(type)), Accepts(row, type))
                << row.name << " with type 0x" << std::hex << type;
}

TEST(ConstantFilters, VectorsPassFamilyAButNotFamilyB)
{
    VELDTypeInfo vector(Integer | VectorFlag);
    VELDTypeInfo single(Integer);
    EXPECT_TRUE(FilterInteger.Match(vector));
    EXPECT_FALSE(FilterOneInteger.Match(vector));
    EXPECT_TRUE(FilterOneInteger.Match(single));
    EXPECT_FALSE(FilterOneInteger.Match(VELDTypeInfo(Integer64)));
    EXPECT_TRUE(FilterOneNumber.Match(VELDTypeInfo(Float32)));
    EXPECT_FALSE(FilterOneNumber.Match(VELDTypeInfo(Float32 | VectorFlag)));
    EXPECT_FALSE(FilterOneNumber.Match(VELDTypeInfo(CANFrame)));
    EXPECT_TRUE(FilterAnyCANFrame.Match(VELDTypeInfo(CANUniFrame | VectorFlag)));
    EXPECT_TRUE(TypeFilter(single, FilterInteger));
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
