// The object that holds a property's value. Reads and writes go through the
// owner module (VELDModule::Get, Set, DirectSet), which tests the flags and
// the type, takes its structure lock and runs the callbacks; the object's own
// Set and Get only forward there.
#ifndef VELD_PROPERTY_IMPL_H
#define VELD_PROPERTY_IMPL_H

#include <atomic>

#include "veld_definitions.h"
#include "veld_event.h"
#include "veld_property.h"
#include "veld_property_value.h"

class VELDPropertyImplementation : public VELDProperty {
public:
    VELDPropertyImplementation();
    VELDPropertyImplementation(const VELDPropertyImplementation&) = delete;
    VELDPropertyImplementation& operator=(const VELDPropertyImplementation&) = delete;

    // ---- VELDProperty, in its fixed order ----
    // The stored scalar, without lock and without type test.
    VELDInt64 IntegerValue() override;
    // A string property's text, or an enum's selected item.
    VELDString StringValue() override;
    bool BoolValue() override;
    VELDFloat64 FloatValue() override;
    VELDEnumStruct* EnumValues() override;
    const char* Name() override { return m_name; }
    const char* ShortName() override { return m_shortName; }
    const char* Unit() override { return m_definition.unit; }
    VELDModule* Owner() override { return m_owner; }
    int Type() override { return m_value.Type(); }
    int SubType() override { return m_definition.subtype; }
    bool IsMutable() override { return !m_definition.readOnly && m_mutable.load(); }
    bool SetMutable(bool on) override;
    bool PropertyChanged() override { return m_changed.load(); }
    void AcknowledgePropertyChanged() override;
    VELDEvent* GetPropertyChangedEvent() override { return &m_changedEvent; }
    VELDEvent& PropertyChangedEvent() override { return m_changedEvent; }
    void Set(bool value) override;
    void Set(VELDInt64 value) override;
    void Set(VELDInt32 value) override;
    void Set(VELDFloat64 value) override;
    void Set(const char* value) override;
    void Set(const VELDString& value) override;
    void Set(VELDEnumStruct value) override;
    void Set(const VELDString& items, int selected) override;
    void Get(bool& value) override;
    void Get(VELDInt64& value) override;
    void Get(VELDInt32& value) override;
    void Get(VELDFloat64& value) override;
    void Get(VELDString& value) override;
    void Get(VELDEnumStruct& value) override;
    void Get(VELDArray<VELDString>& items, int& selected) override;
    void SetSetCallback(VELDPropertySetCallback callback) override { m_setCallback = callback; }
    void SetGetCallback(VELDPropertyGetCallback callback) override { m_getCallback = callback; }
    void Lock(bool locked) override { m_definition.locked = locked; }
    ~VELDPropertyImplementation() override;

    // The value, re-read through the get callback when there is one.
    VELDPropertyValue PropertyValue();
    // Replaces the module part of the full name when it is `oldPrefix`.
    void Rename(const char* oldPrefix, const char* newPrefix);
    // The definition's name pointer: how Dynamic recognises a declaration.
    const char* DefinitionName() const { return m_definition.name; }

    // Scalar stores for the owner, under its structure lock; readers may read
    // without it.
    void StoreBool(bool value);
    void StoreInteger(VELDInt64 value);
    void StoreFloat(VELDFloat64 value);
    // After every write, under the owner's structure lock.
    void MarkChanged();

    VELDString m_name;
    VELDString m_shortName;
    VELDPropertyValue m_value;
    VELDPropertyDefinition m_definition;
    VELDEvent m_changedEvent;
    VELDPropertyGetCallback m_getCallback;
    VELDPropertySetCallback m_setCallback;
    VELDModule* m_owner;
    std::atomic<bool> m_changed;
    std::atomic<bool> m_mutable;
    // A property of an input or an output (".subsampling" and the like):
    // it comes and goes with its element, not with Dynamic.
    bool m_special;
};

#endif
