#include "veld_property_value.h"

#include <cstdio>

#include "veld.h"

// ---------------------------------------------------------------------------
// VELDEnumStruct

namespace {

const char* const kSelectionIncompatible =
    "VELDEnumStruct::FromString: Selected value incompatible with enum values for property. Selected property is "
    "set to 0.";

}  // namespace

VELDEnumStruct::VELDEnumStruct() : selected(-1), values(new VELDArray<VELDStackedString<40>>()) {}

VELDEnumStruct::VELDEnumStruct(const char* items, int sel) : selected(-1), values(new VELDArray<VELDStackedString<40>>())
{
    if (!items || !*items) return;
    *values = VELDString(items).Split('|');
    selected = sel;
    if (sel < 0 || sel >= values->Size()) {
        VELD::ReportError("Selected value incompatible with enum values for property. Selected property is set to 0", 0);
        selected = 0;
    }
}

VELDEnumStruct::VELDEnumStruct(const VELDEnumStruct& other)
    : selected(other.selected), values(new VELDArray<VELDStackedString<40>>(*other.values))
{
}

VELDEnumStruct& VELDEnumStruct::operator=(const VELDEnumStruct& other)
{
    Copy(other);
    return *this;
}

VELDEnumStruct::~VELDEnumStruct() { delete values; }

void VELDEnumStruct::Copy(const VELDEnumStruct& other)
{
    if (this == &other) return;
    *values = *other.values;
    selected = other.selected;
}

void VELDEnumStruct::ClearItems()
{
    // A borrowed block is never touched: a fresh owned array replaces it.
    delete values;
    values = new VELDArray<VELDStackedString<40>>();
}

VELDString VELDEnumStruct::ToString() const
{
    VELDStreamedString text;
    text << values->Size() << '|' << selected;
    for (int i = 0; i < values->Size(); ++i) text << '|' << (*values)[i];
    return text;
}

bool VELDEnumStruct::IsEnumString(const char* text)
{
    int n = 0, s = 0;
    return text && std::sscanf(text, "%d|%d", &n, &s) == 2;
}

void VELDEnumStruct::FromString(const char* text, bool selectionOnly)
{
    int n = 0, s = 0;
    if (!text || std::sscanf(text, "%d|%d", &n, &s) != 2) {
        VELDStreamedString report(
            "VELDEnumStruct::FromString: Ill-formed enum string [expected:nbVal|selected|val0|val1|val2...] "
            "[received:");
        report << text << "]";
        VELD::ReportError(report, 0);
        return;
    }
    if (selectionOnly) {
        // A negative selection passes this test as it stands.
        if (s < values->Size()) {
            selected = s;
        } else {
            selected = 0;
            VELD::ReportError(kSelectionIncompatible, 0);
        }
        return;
    }
    ClearItems();
    if (n <= 0) {
        selected = -1;
        return;
    }
    VELDArray<VELDString> fields = VELDString(text).Split('|');
    if (fields.Size() - 2 != n) {
        VELD::ReportError(
            "VELDEnumStruct::FromString: Declared size of enum struct does not match the number of given elements.", 0);
        selected = -1;
        return;
    }
    for (int i = 0; i < n; ++i) values->Append() = fields[i + 2];
    if (s < n) {
        selected = s;
    } else {
        selected = 0;
        VELD::ReportError(kSelectionIncompatible, 0);
    }
}

bool VELDEnumStruct::Select(const char* text)
{
    for (int i = 0; i < values->Size(); ++i)
        if ((*values)[i] == text) {
            selected = i;
            return true;
        }
    selected = -1;
    return false;
}

VELDString VELDEnumStruct::SelectedText() const
{
    return selected >= 0 && selected < values->Size() ? (*values)[selected] : VELDString();
}

// ---------------------------------------------------------------------------
// VELDPropertyValue

VELDPropertyValue::VELDPropertyValue() : type(VELD::BoolProperty) { value.i = 0; }

VELDPropertyValue::VELDPropertyValue(bool v) : type(VELD::BoolProperty)
{
    value.i = 0;
    value.b = v;
}

VELDPropertyValue::VELDPropertyValue(VELDInt64 v) : type(VELD::IntegerProperty) { value.i = v; }
VELDPropertyValue::VELDPropertyValue(VELDInt32 v) : type(VELD::IntegerProperty) { value.i = v; }
VELDPropertyValue::VELDPropertyValue(VELDFloat64 v) : type(VELD::FloatProperty) { value.f = v; }

VELDPropertyValue::VELDPropertyValue(const char* text)
{
    if (VELDEnumStruct::IsEnumString(text)) {
        type = VELD::EnumProperty;
        value.e = new VELDEnumStruct();
        value.e->FromString(text, false);
    } else {
        type = VELD::StringProperty;
        value.s = new VELDString(text);
    }
}

VELDPropertyValue::VELDPropertyValue(const char* items, VELDInt32 selected) : type(VELD::EnumProperty)
{
    value.e = new VELDEnumStruct(items, selected);
}

VELDPropertyValue::VELDPropertyValue(const VELDEnumStruct& e) : type(VELD::EnumProperty)
{
    value.e = new VELDEnumStruct(e);
}

VELDPropertyValue::VELDPropertyValue(const VELDPropertyValue& other) : type(other.type) { CopyFrom(other); }

VELDPropertyValue& VELDPropertyValue::operator=(const VELDPropertyValue& other)
{
    if (this == &other) return *this;
    Release();
    type = other.type;
    CopyFrom(other);
    return *this;
}

VELDPropertyValue::~VELDPropertyValue() { Release(); }

void VELDPropertyValue::Release()
{
    if (type == VELD::StringProperty) delete value.s;
    if (type == VELD::EnumProperty) delete value.e;
    value.i = 0;
}

void VELDPropertyValue::CopyFrom(const VELDPropertyValue& other)
{
    if (type == VELD::StringProperty)
        value.s = other.value.s ? new VELDString(*other.value.s) : new VELDString();
    else if (type == VELD::EnumProperty)
        value.e = other.value.e ? new VELDEnumStruct(*other.value.e) : new VELDEnumStruct();
    else
        value = other.value;
}

VELDString VELDPropertyValue::ToString() const
{
    VELDStreamedString text;
    switch (type) {
    case VELD::BoolProperty:
        text << (value.b ? "true" : "false");
        break;
    case VELD::IntegerProperty:
        text << static_cast<long>(value.i);
        break;
    case VELD::FloatProperty:
        text << value.f;
        break;
    case VELD::StringProperty:
        if (value.s) text << *value.s;
        break;
    case VELD::EnumProperty:
        if (value.e) text << value.e->ToString();
        break;
    default:
        break;
    }
    return text;
}
