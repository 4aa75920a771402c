#include "veld_object_types.h"

#include "veld_os_helpers.h"

// ---------------------------------------------------------------------------
// VELDTypeInfo

namespace {

VELDString* CopyOf(const VELDString* s) { return s ? new VELDString(*s) : nullptr; }

}  // namespace

VELDTypeInfo::VELDTypeInfo(VELDTypeInfoValue v, const char* typeName, const char* typeUnit)
    : value(v), name(nullptr), unit(nullptr)
{
    if (typeName) SetName(typeName);
    if (typeUnit) SetUnit(typeUnit);
}

VELDTypeInfo::VELDTypeInfo(const VELDTypeInfo& other)
    : value(other.value), name(CopyOf(other.name)), unit(CopyOf(other.unit))
{
}

VELDTypeInfo& VELDTypeInfo::operator=(const VELDTypeInfo& other)
{
    if (this == &other) return *this;
    value = other.value;
    VELDString* n = CopyOf(other.name);
    VELDString* u = CopyOf(other.unit);
    delete name;
    delete unit;
    name = n;
    unit = u;
    return *this;
}

VELDTypeInfo::~VELDTypeInfo()
{
    delete name;
    delete unit;
}

void VELDTypeInfo::SetName(const char* text)
{
    if (!name) name = new VELDString();
    *name = text;
}

void VELDTypeInfo::SetUnit(const char* text)
{
    if (!unit) unit = new VELDString();
    *unit = text;
}

// ---------------------------------------------------------------------------
// VELDTypeFilterBase

VELDTypeFilterBase::VELDTypeFilterBase(const VELDTypeFilterBase& other)
    : mask(other.mask), x(other.x), maskX(other.maskX), nameFilter(other.nameFilter), unitFilter(other.unitFilter),
      nameRegexp(nullptr), unitRegexp(nullptr)
{
}

VELDTypeFilterBase& VELDTypeFilterBase::operator=(const VELDTypeFilterBase& other)
{
    if (this == &other) return *this;
    delete nameRegexp;
    delete unitRegexp;
    nameRegexp = unitRegexp = nullptr;
    mask = other.mask;
    x = other.x;
    maskX = other.maskX;
    nameFilter = other.nameFilter;
    unitFilter = other.unitFilter;
    return *this;
}

VELDTypeFilterBase::~VELDTypeFilterBase()
{
    delete nameRegexp;
    delete unitRegexp;
}

namespace {

// A text matches when the type has one and the expression accepts it.
bool TextMatches(const char* expression, VELDRegExp*& regexp, const char* text)
{
    if (!regexp) regexp = new VELDRegExp(expression, 0);
    return text && regexp->exec(text);
}

}  // namespace

bool VELDTypeFilterBase::Match(const VELDTypeInfo& t) const
{
    if (!(t.value & VELD::IgnoreNameFlag) && nameFilter && !TextMatches(nameFilter, nameRegexp, t.Name()))
        return false;
    if (!(t.value & VELD::IgnoreUnitFlag) && unitFilter && !TextMatches(unitFilter, unitRegexp, t.Unit()))
        return false;
    if ((x ^ t.value) & mask) return false;
    return (t.value & maskX) != 0;
}

bool VELDTypeFilterBase::operator==(const VELDTypeFilterBase& other) const
{
    if (nameFilter || unitFilter || other.nameFilter || other.unitFilter) return false;
    return mask == other.mask && maskX == other.maskX && x == other.x;
}

bool VELD::TypeFilter(const VELDTypeInfo& type, const VELDTypeFilterBase& filter) { return filter.Match(type); }

// ---------------------------------------------------------------------------
// The constant filters

namespace VELD {

namespace {
constexpr VELDTypeInfoValue kSingleValueMask = VectorFlag | TypeMask;
}  // namespace

#define VELD_FILTER_ANY_OF(filterName, bits) const VELDTypeFilterBase filterName(0, 0, bits)
#define VELD_FILTER_ONE(filterName, type) const VELDTypeFilterBase filterName(kSingleValueMask, type, TypeMask)

VELD_FILTER_ANY_OF(FilterInteger, Integer);
VELD_FILTER_ANY_OF(FilterIntegers, Integer);
VELD_FILTER_ANY_OF(FilterInteger32, Integer32);
VELD_FILTER_ANY_OF(FilterIntegers32, Integer32);
VELD_FILTER_ANY_OF(FilterFloat, Float);
VELD_FILTER_ANY_OF(FilterFloats, Float);
VELD_FILTER_ANY_OF(FilterFloat64, Float64);
VELD_FILTER_ANY_OF(FilterDouble, Double);
VELD_FILTER_ANY_OF(FilterFloats64, Float64);
VELD_FILTER_ANY_OF(FilterDoubles, Double);
VELD_FILTER_ANY_OF(FilterInteger8, Integer8);
VELD_FILTER_ANY_OF(FilterIntegers8, Integer8);
VELD_FILTER_ANY_OF(FilterInteger16, Integer16);
VELD_FILTER_ANY_OF(FilterIntegers16, Integer16);
VELD_FILTER_ANY_OF(FilterInteger64, Integer64);
VELD_FILTER_ANY_OF(FilterIntegers64, Integer64);
VELD_FILTER_ANY_OF(FilterUnsignedInteger8, UnsignedInteger8);
VELD_FILTER_ANY_OF(FilterUnsignedInteger16, UnsignedInteger16);
VELD_FILTER_ANY_OF(FilterUnsignedInteger32, UnsignedInteger32);
VELD_FILTER_ANY_OF(FilterUnsignedInteger64, UnsignedInteger64);
VELD_FILTER_ANY_OF(FilterUnsignedIntegers8, UnsignedInteger8);
VELD_FILTER_ANY_OF(FilterUnsignedIntegers16, UnsignedInteger16);
VELD_FILTER_ANY_OF(FilterUnsignedIntegers32, UnsignedInteger32);
VELD_FILTER_ANY_OF(FilterUnsignedIntegers64, UnsignedInteger64);
VELD_FILTER_ANY_OF(FilterFloat32, Float32);
VELD_FILTER_ANY_OF(FilterFloats32, Float32);
VELD_FILTER_ANY_OF(FilterNumber, AnyNumber);
VELD_FILTER_ANY_OF(FilterNumbers, AnyNumber);
VELD_FILTER_ANY_OF(FilterAnyFloats, AnyFloat);
VELD_FILTER_ANY_OF(FilterAnyIntegers, AnyInteger);
VELD_FILTER_ANY_OF(FilterSignedIntegers, AnySignedInteger);
VELD_FILTER_ANY_OF(FilterUnsignedIntegers, AnyUnsignedInteger);
VELD_FILTER_ANY_OF(FilterUnsignedNumbers, AnyUnsignedInteger);
VELD_FILTER_ANY_OF(FilterSignedNumbers, AnySignedNumber);
VELD_FILTER_ANY_OF(FilterStructure, Structure);
VELD_FILTER_ANY_OF(FilterDynamicStructure, DynamicStructure);
VELD_FILTER_ANY_OF(FilterCustomType, CustomType);
VELD_FILTER_ANY_OF(FilterMatrix, Matrix);
VELD_FILTER_ANY_OF(FilterRealObjects, RealObject);
VELD_FILTER_ANY_OF(FilterDrawingObjects, DrawingObject);
VELD_FILTER_ANY_OF(FilterTriangles3D, Triangles3D);
VELD_FILTER_ANY_OF(FilterStream8, Stream8);
VELD_FILTER_ANY_OF(FilterStream16, Stream16);
VELD_FILTER_ANY_OF(FilterStream32, Stream32);
VELD_FILTER_ANY_OF(FilterAudioSignal, AudioSignal);
VELD_FILTER_ANY_OF(FilterCANFrame, CANFrame);
VELD_FILTER_ANY_OF(FilterCANFDFrame, CANFDFrame);
VELD_FILTER_ANY_OF(FilterCANUniFrame, CANUniFrame);
VELD_FILTER_ANY_OF(FilterIplImage, IplImage);
VELD_FILTER_ANY_OF(FilterVELDImage, VELDImage);
VELD_FILTER_ANY_OF(FilterTextAscii, TextAscii);
VELD_FILTER_ANY_OF(FilterTextUTF8, TextUTF8);
VELD_FILTER_ANY_OF(FilterTextUnicode, TextUnicode);
VELD_FILTER_ANY_OF(FilterTextUTF16, TextUTF16);
VELD_FILTER_ANY_OF(FilterImage, IplImage | VELDImage);
VELD_FILTER_ANY_OF(FilterAnyCANFrame, CANFrame | CANFDFrame | CANUniFrame);
VELD_FILTER_ANY_OF(FilterAudioSignals, AudioSignal | Float32 | Stream8);
VELD_FILTER_ANY_OF(FilterAny, TypeMask);

VELD_FILTER_ONE(FilterOneInteger, Integer);
VELD_FILTER_ONE(FilterOneFloat, Float);
VELD_FILTER_ONE(FilterOneInteger8, Integer8);
VELD_FILTER_ONE(FilterOneInteger16, Integer16);
VELD_FILTER_ONE(FilterOneInteger32, Integer32);
VELD_FILTER_ONE(FilterOneInteger64, Integer64);
VELD_FILTER_ONE(FilterOneUnsignedInteger8, UnsignedInteger8);
VELD_FILTER_ONE(FilterOneUnsignedInteger16, UnsignedInteger16);
VELD_FILTER_ONE(FilterOneUnsignedInteger32, UnsignedInteger32);
VELD_FILTER_ONE(FilterOneUnsignedInteger64, UnsignedInteger64);
VELD_FILTER_ONE(FilterOneFloat64, Float64);
VELD_FILTER_ONE(FilterOneDouble, Double);
VELD_FILTER_ONE(FilterOneFloat32, Float32);

const VELDTypeFilterBase FilterOneNumber(VectorFlag, 0, AnyNumber);

#undef VELD_FILTER_ANY_OF
#undef VELD_FILTER_ONE

}  // namespace VELD
