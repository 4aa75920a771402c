// Types of outputs, filters of inputs and reader types as a user reads them
// in listings and refusals: "Integer", "Float vector", "Structure
// (NxFrame)", "accepts Integer, Integer64", "FifoReader".
#ifndef VELDOR_ENGINE_TYPE_TEXT_H
#define VELDOR_ENGINE_TYPE_TEXT_H

#include <string>

#include "veld_types.h"

class VELDTypeInfo;
class VELDTypeFilterBase;

namespace veldor {

// The type bits by name, " vector" for a vector, and the type's name in
// parentheses when it has one.
std::string DescribeType(const VELDTypeInfo& type);
// What a filter accepts: the type names of its bits, "single" when it
// refuses vectors, the name and unit expressions.
std::string DescribeFilter(const VELDTypeFilterBase* filter);
// "FifoReader" ... "SamplingReader".
const char* ReaderTypeName(int readerType);

}  // namespace veldor

#endif
