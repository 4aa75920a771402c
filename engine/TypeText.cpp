#include "TypeText.h"

#include "veld_constants.h"
#include "veld_object_types.h"

namespace veldor {

namespace {

// One name for each type bit, in bit order; shared bits take the number's
// name.
const char* const kBitNames[] = {
    "Structure", "Integer", "Float", "TextAscii", "TextUnicode", "IplImage", "VELDImage", "CANFrame",
    "Matrix", "RealObject", "DrawingObject", "Triangles3D", "UnsignedInteger8", "UnsignedInteger16",
    "UnsignedInteger32", "Integer64", "Float32", "AudioSignal", "DynamicStructure", "CANFDFrame", "Integer8",
    "Integer16", "UnsignedInteger64", "CustomType", "CANUniFrame"};
const int kNamedBits = sizeof(kBitNames) / sizeof(kBitNames[0]);

std::string BitNames(VELDTypeInfoValue bits)
{
    std::string text;
    for (int i = 0; i < 32; ++i) {
        if (!(bits & (VELDTypeInfoValue(1) << i))) continue;
        if (!text.empty()) text += ", ";
        text += i < kNamedBits ? kBitNames[i] : "bit " + std::to_string(i);
    }
    return text;
}

}  // namespace

std::string DescribeType(const VELDTypeInfo& type)
{
    std::string text = BitNames(type.value & VELD::TypeMask);
    if (text.empty()) text = "no type";
    if (type.value & VELD::VectorFlag) text += " vector";
    if (type.Name() && *type.Name()) text += std::string(" (") + type.Name() + ")";
    return text;
}

std::string DescribeFilter(const VELDTypeFilterBase* filter)
{
    if (!filter) return "anything";
    VELDTypeInfoValue bits = (filter->maskX | (filter->x & filter->mask)) & VELD::TypeMask;
    std::string text = bits == VELD::TypeMask ? std::string("any type") : BitNames(bits);
    if (text.empty()) text = "nothing";
    if ((filter->mask & VELD::VectorFlag) && !(filter->x & VELD::VectorFlag)) text += ", single values";
    if (filter->nameFilter) text += std::string(", name ") + filter->nameFilter;
    if (filter->unitFilter) text += std::string(", unit ") + filter->unitFilter;
    return text;
}

const char* ReaderTypeName(int readerType)
{
    static const char* const names[] = {"FifoReader", "NeverSkippingReader", "LastOrNextReader", "Wait4NextReader",
                                        "SamplingReader"};
    return readerType >= 0 && readerType < 5 ? names[readerType] : "unknown reader";
}

}  // namespace veldor
