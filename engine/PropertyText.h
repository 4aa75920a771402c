// Property values as a user writes them, in a script or on the command line:
//
//   bool     true, false
//   integer  decimal (-12) or hexadecimal (0x1F)
//   float    any decimal number (1, 2.5, -1e-3)
//   string   a bare word or a double-quoted text
//   enum     the text of one of its items, or the whole-enum text
//            "<count>|<selected>|<item>|..." (a locked enum takes only the
//            selection from it)
//
// A value is checked against the property's type and flags before it is
// written, so that a refusal names the property and says what was expected;
// the write itself is the owner's checked Set, which for a component runs
// Dynamic again.
#ifndef VELDOR_ENGINE_PROPERTY_TEXT_H
#define VELDOR_ENGINE_PROPERTY_TEXT_H

#include <string>

#include "veld_types.h"

class VELDProperty;

namespace veldor {

class PropertyText {
public:
    // Writes `text` into `property`. `quoted` tells that the user wrote the
    // value between double quotes, which makes it a text whatever it holds.
    // False, with the reason in `*error`, when the value does not fit the
    // property or the owner refuses it.
    static bool Set(VELDProperty& property, const std::string& text, bool quoted, std::string* error);

    // "bool", "integer", "float", "string", "enum".
    static const char* TypeName(int type);
    // The stored value as the user would write it: true, 12, 2.5, "text",
    // 2|1|a|b.
    static std::string ValueOf(VELDProperty& property);
    // The flags worth telling: "needs to be set", "read-only", "changes
    // while running", "locked"; comma-separated, empty when none.
    static std::string FlagsOf(VELDProperty& property);

    // A whole text as a decimal or 0x-hexadecimal integer, with an optional
    // sign.
    static bool ParseInteger(const std::string& text, VELDInt64* value);
    static bool ParseFloat(const std::string& text, double* value);
};

}  // namespace veldor

#endif
