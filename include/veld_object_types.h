// Type descriptors: what an output carries (VELDTypeInfo) and what an input
// accepts (VELDTypeFilterBase), with the constant filters of the framework.
#ifndef VELD_OBJECT_TYPES_H
#define VELD_OBJECT_TYPES_H

#include "veld_constants.h"
#include "veld_string.h"

class VELDRegExp;

// A type bit in the low 32 bits and flags at the top, with an optional name
// and unit. Copies are deep.
class VELDTypeInfo {
public:
    VELDTypeInfo(VELDTypeInfoValue v = VELD::NoType) : value(v), name(nullptr), unit(nullptr) {}
    VELDTypeInfo(VELDTypeInfoValue v, const char* typeName, const char* typeUnit);
    VELDTypeInfo(const VELDTypeInfo& other);
    VELDTypeInfo& operator=(const VELDTypeInfo& other);
    ~VELDTypeInfo();

    // Create the text when needed; null leaves an empty text.
    void SetName(const char* text);
    void SetUnit(const char* text);
    const char* Name() const { return name ? name->Beginning() : nullptr; }
    const char* Unit() const { return unit ? unit->Beginning() : nullptr; }

    VELDTypeInfoValue value;
    VELDString* name;  // owned, may be null
    VELDString* unit;  // owned, may be null
};

// Accepts a type when (x XOR value) AND mask is 0 and value AND maskX is not,
// and when its name and unit match the optional expressions (unless the type
// says to ignore them). mask and x force exact bits; maskX asks for at least
// one of a set.
class VELDTypeFilterBase {
public:
    constexpr VELDTypeFilterBase(VELDTypeInfoValue m, VELDTypeInfoValue ex, VELDTypeInfoValue mx,
                                 const char* nameExpression = nullptr, const char* unitExpression = nullptr)
        : mask(m), x(ex), maskX(mx), nameFilter(nameExpression), unitFilter(unitExpression), nameRegexp(nullptr),
          unitRegexp(nullptr)
    {
    }
    VELDTypeFilterBase(const VELDTypeFilterBase& other);
    VELDTypeFilterBase& operator=(const VELDTypeFilterBase& other);
    ~VELDTypeFilterBase();

    bool Match(const VELDTypeInfo& type) const;
    // Compares the three masks. A filter with a name or unit expression is
    // never equal to anything, not even to a copy of itself.
    bool operator==(const VELDTypeFilterBase& other) const;
    bool operator!=(const VELDTypeFilterBase& other) const { return !(*this == other); }

    VELDTypeInfoValue mask;
    VELDTypeInfoValue x;
    VELDTypeInfoValue maskX;
    const char* nameFilter;  // regular expression, may be null
    const char* unitFilter;  // regular expression, may be null
    mutable VELDRegExp* nameRegexp;  // built on first use, owned
    mutable VELDRegExp* unitRegexp;
};

namespace VELD {

bool TypeFilter(const VELDTypeInfo& type, const VELDTypeFilterBase& filter);

// Vectors and single values alike, by a set of type bits.
extern const VELDTypeFilterBase FilterInteger, FilterIntegers, FilterInteger32, FilterIntegers32;
extern const VELDTypeFilterBase FilterFloat, FilterFloats, FilterFloat64, FilterDouble, FilterFloats64, FilterDoubles;
extern const VELDTypeFilterBase FilterInteger8, FilterIntegers8, FilterInteger16, FilterIntegers16, FilterInteger64,
    FilterIntegers64;
extern const VELDTypeFilterBase FilterUnsignedInteger8, FilterUnsignedInteger16, FilterUnsignedInteger32,
    FilterUnsignedInteger64, FilterUnsignedIntegers8, FilterUnsignedIntegers16, FilterUnsignedIntegers32,
    FilterUnsignedIntegers64;
extern const VELDTypeFilterBase FilterFloat32, FilterFloats32;
extern const VELDTypeFilterBase FilterNumber, FilterNumbers, FilterAnyFloats, FilterAnyIntegers, FilterSignedIntegers,
    FilterUnsignedIntegers, FilterUnsignedNumbers, FilterSignedNumbers;
extern const VELDTypeFilterBase FilterStructure, FilterDynamicStructure, FilterCustomType, FilterMatrix,
    FilterRealObjects, FilterDrawingObjects, FilterTriangles3D, FilterStream8, FilterStream16, FilterStream32,
    FilterAudioSignal, FilterCANFrame, FilterCANFDFrame, FilterCANUniFrame, FilterIplImage, FilterVELDImage,
    FilterTextAscii, FilterTextUTF8, FilterTextUnicode, FilterTextUTF16;
extern const VELDTypeFilterBase FilterImage, FilterAnyCANFrame, FilterAudioSignals, FilterAny;

// Exactly the single, non-vector value of one type.
extern const VELDTypeFilterBase FilterOneInteger, FilterOneFloat, FilterOneInteger8, FilterOneInteger16,
    FilterOneInteger32, FilterOneInteger64, FilterOneUnsignedInteger8, FilterOneUnsignedInteger16,
    FilterOneUnsignedInteger32, FilterOneUnsignedInteger64, FilterOneFloat64, FilterOneDouble, FilterOneFloat32;

// Any number type that is not a vector.
extern const VELDTypeFilterBase FilterOneNumber;

}  // namespace VELD

#endif
