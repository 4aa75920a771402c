// The two value types of properties: VELDPropertyValue, the variant a
// definition table holds, and VELDEnumStruct, the value of an enum property
// with its text form "<count>|<selected>|<item>|<item>...".
#ifndef VELD_PROPERTY_VALUE_H
#define VELD_PROPERTY_VALUE_H

#include "veld_constants.h"
#include "veld_containers.h"
#include "veld_string.h"

class VELDEnumStruct {
public:
    // No items, nothing selected.
    VELDEnumStruct();
    // Items separated by "|"; a null or empty text gives no items and no
    // selection. A selection out of range is reported and becomes 0.
    VELDEnumStruct(const char* items, int selected);
    VELDEnumStruct(const VELDEnumStruct& other);
    VELDEnumStruct& operator=(const VELDEnumStruct& other);
    virtual ~VELDEnumStruct();

    // "<count>|<selected>" followed by "|<item>" for each item.
    VELDString ToString() const;
    // True when the text starts with two numbers separated by "|".
    static bool IsEnumString(const char* text);
    // Reads the whole-enum text form; with selectionOnly only the selection
    // changes. Failures are reported and leave the enum as the step left it.
    void FromString(const char* text, bool selectionOnly);
    // Selects the first item equal to text; otherwise nothing is selected
    // and the result is false.
    bool Select(const char* text);
    int GetSelected() const { return selected; }
    void SetSelected(int index) { selected = index; }
    void Copy(const VELDEnumStruct& other);

    int Count() const { return values->Size(); }
    const VELDString& Item(int i) const { return (*values)[i]; }
    // The text of the selected item, or the empty text.
    VELDString SelectedText() const;
    const VELDArray<VELDStackedString<40>>& Items() const { return *values; }

    int selected;                               // -1: none
    VELDArray<VELDStackedString<40>>* values;  // owned

private:
    void ClearItems();
};

class VELDPropertyValue {
public:
    VELDPropertyValue();  // false
    VELDPropertyValue(bool v);
    VELDPropertyValue(VELDInt64 v);
    VELDPropertyValue(VELDInt32 v);
    VELDPropertyValue(VELDFloat64 v);
    // A string, or an enum when the text has the whole-enum form.
    VELDPropertyValue(const char* text);
    // An enum of "|"-separated items.
    VELDPropertyValue(const char* items, VELDInt32 selected);
    VELDPropertyValue(const VELDEnumStruct& e);
    VELDPropertyValue(const VELDPropertyValue& other);
    VELDPropertyValue& operator=(const VELDPropertyValue& other);
    ~VELDPropertyValue();

    int Type() const { return type; }
    bool BoolValue() const { return value.b; }
    VELDInt64 IntegerValue() const { return value.i; }
    VELDFloat64 FloatValue() const { return value.f; }
    // Null unless a string property.
    VELDString* StringValue() const { return type == VELD::StringProperty ? value.s : nullptr; }
    // Null unless an enum property.
    VELDEnumStruct* EnumValue() const { return type == VELD::EnumProperty ? value.e : nullptr; }
    // "true"/"false", decimal, "%.10g", the text, or the whole-enum form.
    VELDString ToString() const;

    int type;
    union {
        bool b;
        VELDInt64 i;
        VELDFloat64 f;
        VELDString* s;
        VELDEnumStruct* e;
    } value;

private:
    void Release();
    void CopyFrom(const VELDPropertyValue& other);
};

#endif
