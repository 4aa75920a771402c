#include "PropertyText.h"

#include <cerrno>
#include <cstdlib>
#include <vector>

#include "veld_module.h"
#include "veld_property_impl.h"
#include "veld_property_value.h"

namespace veldor {

namespace {

std::vector<std::string> Split(const std::string& text, char separator)
{
    std::vector<std::string> fields;
    size_t start = 0;
    for (;;) {
        size_t end = text.find(separator, start);
        fields.push_back(text.substr(start, end == std::string::npos ? std::string::npos : end - start));
        if (end == std::string::npos) return fields;
        start = end + 1;
    }
}

std::string ItemList(const VELDEnumStruct* value)
{
    std::string items;
    for (int i = 0; value && i < value->Count(); ++i) items += (i ? ", " : "") + std::string(value->Item(i).Beginning());
    return items.empty() ? "no items" : items;
}

// The whole-enum text checked as FromString would read it, so that a bad one
// is refused here rather than reported half-applied. With `selectionOnly`
// (a locked enum) only the selection is taken, and it must fit the items
// there are.
bool CheckEnumText(const std::string& text, const VELDEnumStruct* current, bool selectionOnly, std::string* why)
{
    std::vector<std::string> fields = Split(text, '|');
    VELDInt64 count = 0, selected = 0;
    if (fields.size() < 2 || !PropertyText::ParseInteger(fields[0], &count) ||
        !PropertyText::ParseInteger(fields[1], &selected)) {
        *why = "a whole enum reads <count>|<selected>|<item>|...";
        return false;
    }
    VELDInt64 items = selectionOnly ? (current ? current->Count() : 0) : static_cast<VELDInt64>(fields.size()) - 2;
    if (!selectionOnly && count != items) {
        *why = "it declares " + std::to_string(count) + " items and gives " + std::to_string(items);
        return false;
    }
    if (items > 0 && (selected < 0 || selected >= items)) {
        *why = "its selection " + std::to_string(selected) + " is not among its " + std::to_string(items) + " items";
        return false;
    }
    return true;
}

}  // namespace

const char* PropertyText::TypeName(int type)
{
    switch (type) {
    case VELD::BoolProperty:
        return "bool";
    case VELD::IntegerProperty:
        return "integer";
    case VELD::FloatProperty:
        return "float";
    case VELD::StringProperty:
        return "string";
    case VELD::EnumProperty:
        return "enum";
    default:
        return "unknown";
    }
}

bool PropertyText::ParseInteger(const std::string& text, VELDInt64* value)
{
    if (text.empty()) return false;
    size_t digits = text[0] == '-' || text[0] == '+' ? 1 : 0;
    bool hex = text.compare(digits, 2, "0x") == 0 || text.compare(digits, 2, "0X") == 0;
    if (text.size() <= digits + (hex ? 2 : 0)) return false;
    char* end = nullptr;
    errno = 0;
    long long parsed = std::strtoll(text.c_str(), &end, hex ? 16 : 10);
    if (*end || errno == ERANGE) return false;
    *value = parsed;
    return true;
}

bool PropertyText::ParseFloat(const std::string& text, double* value)
{
    if (text.empty()) return false;
    char* end = nullptr;
    errno = 0;
    double parsed = std::strtod(text.c_str(), &end);
    if (*end || errno == ERANGE) return false;
    *value = parsed;
    return true;
}

bool PropertyText::Set(VELDProperty& property, const std::string& text, bool quoted, std::string* error)
{
    auto fail = [&](const std::string& why) {
        if (error) *error = "property " + std::string(property.Name()) + ": " + why;
        return false;
    };
    auto& implementation = static_cast<VELDPropertyImplementation&>(property);
    VELDModule* owner = property.Owner();
    if (!owner) return fail("it belongs to no module");
    const VELDPropertyDefinition& flags = implementation.m_definition;
    if (flags.readOnly) return fail("it is read-only");
    if (!property.IsMutable()) return fail("it is not mutable");
    if (!flags.canBeModifiedAfterStart && owner->IsStarted())
        return fail("it can't be modified while its component runs");

    const int type = property.Type();
    const std::string shown = "\"" + text + "\"";
    const std::string kind = std::string("it is ") +
                             (type == VELD::IntegerProperty || type == VELD::EnumProperty ? "an " : "a ") +
                             TypeName(type);
    try {
        switch (type) {
        case VELD::BoolProperty:
            if (quoted || (text != "true" && text != "false"))
                return fail(kind + " (true or false), not " + (quoted ? "the string " : "") + shown);
            owner->Set(property, text == "true");
            break;
        case VELD::IntegerProperty: {
            VELDInt64 value = 0;
            if (quoted || !ParseInteger(text, &value))
                return fail(kind + " (decimal or 0x hexadecimal), not " + (quoted ? "the string " : "") + shown);
            owner->Set(property, value);
            break;
        }
        case VELD::FloatProperty: {
            double value = 0;
            if (quoted || !ParseFloat(text, &value))
                return fail(kind + " (a number), not " + (quoted ? "the string " : "") + shown);
            owner->Set(property, static_cast<VELDFloat64>(value));
            break;
        }
        case VELD::StringProperty:
            owner->Set(property, VELDString(text.c_str()));
            break;
        case VELD::EnumProperty: {
            VELDEnumStruct* current = property.EnumValues();
            bool isItem = false;
            for (int i = 0; current && i < current->Count() && !isItem; ++i)
                isItem = text == current->Item(i).Beginning();
            std::string why;
            if (!isItem && !VELDEnumStruct::IsEnumString(text.c_str()))
                return fail(kind + " of " + ItemList(current) + ", and " + shown + " is none of them");
            if (!isItem && !CheckEnumText(text, current, flags.locked, &why))
                return fail("the enum text " + shown + " does not fit: " + why);
            owner->Set(property, VELDString(text.c_str()));
            break;
        }
        default:
            return fail("its type is unknown");
        }
    } catch (int) {
        // The owner reported the refusal; it keeps the text.
        return fail(owner->m_lastErrorText.Length() ? owner->m_lastErrorText.Beginning() : "the owner refused it");
    } catch (...) {
        return fail("the owner failed while taking it");
    }
    return true;
}

std::string PropertyText::ValueOf(VELDProperty& property)
{
    auto& implementation = static_cast<VELDPropertyImplementation&>(property);
    std::string text = implementation.m_value.ToString().Beginning();
    return property.Type() == VELD::StringProperty ? "\"" + text + "\"" : text;
}

std::string PropertyText::FlagsOf(VELDProperty& property)
{
    const VELDPropertyDefinition& d = static_cast<VELDPropertyImplementation&>(property).m_definition;
    std::string flags;
    auto add = [&flags](const char* flag) { flags += (flags.empty() ? "" : ", ") + std::string(flag); };
    if (d.needs2BeInitialized) add("needs to be set");
    if (d.readOnly) add("read-only");
    if (d.canBeModifiedAfterStart && !d.readOnly) add("changes while running");
    if (d.locked) add("locked");
    return flags;
}

}  // namespace veldor
