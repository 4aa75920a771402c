#include "veld_property_impl.h"

#include "veld_module.h"

namespace {

// The scalar of a value as one 64-bit word, so that a reader on another
// thread sees a whole value without taking the owner's lock.
VELDInt64 LoadBits(const VELDPropertyValue& value)
{
    return __atomic_load_n(&value.value.i, __ATOMIC_ACQUIRE);
}

void StoreBits(VELDPropertyValue& value, VELDInt64 bits) { __atomic_store_n(&value.value.i, bits, __ATOMIC_RELEASE); }

}  // namespace

VELDPropertyImplementation::VELDPropertyImplementation()
    : m_changedEvent(false, nullptr), m_getCallback(nullptr), m_setCallback(nullptr), m_owner(nullptr),
      m_changed(true), m_mutable(true), m_special(false)
{
}

VELDPropertyImplementation::~VELDPropertyImplementation() {}

VELDInt64 VELDPropertyImplementation::IntegerValue()
{
    if (m_value.Type() == VELD::EnumProperty) {
        VELDMutexGuard guard(m_owner->m_structureLock);
        return m_value.EnumValue() ? m_value.EnumValue()->GetSelected() : -1;
    }
    return LoadBits(m_value);
}

bool VELDPropertyImplementation::BoolValue() { return (LoadBits(m_value) & 0xFF) != 0; }

VELDFloat64 VELDPropertyImplementation::FloatValue()
{
    VELDInt64 bits = LoadBits(m_value);
    VELDFloat64 value;
    __builtin_memcpy(&value, &bits, sizeof value);
    return value;
}

VELDString VELDPropertyImplementation::StringValue()
{
    // Texts are replaced as a whole under the owner's lock: read them there.
    VELDMutexGuard guard(m_owner->m_structureLock);
    if (m_value.Type() == VELD::StringProperty) return m_value.StringValue() ? *m_value.StringValue() : VELDString();
    if (m_value.Type() == VELD::EnumProperty && m_value.EnumValue()) return m_value.EnumValue()->SelectedText();
    return VELDString();
}

VELDEnumStruct* VELDPropertyImplementation::EnumValues() { return m_value.EnumValue(); }

void VELDPropertyImplementation::StoreBool(bool value)
{
    VELDPropertyValue bits(value);
    StoreBits(m_value, bits.value.i & 0xFF);
}

void VELDPropertyImplementation::StoreInteger(VELDInt64 value) { StoreBits(m_value, value); }

void VELDPropertyImplementation::StoreFloat(VELDFloat64 value)
{
    VELDInt64 bits;
    __builtin_memcpy(&bits, &value, sizeof bits);
    StoreBits(m_value, bits);
}

void VELDPropertyImplementation::MarkChanged()
{
    m_changed.store(true);
    m_changedEvent.Set();
}

bool VELDPropertyImplementation::SetMutable(bool on)
{
    m_mutable.store(on);
    return IsMutable();
}

void VELDPropertyImplementation::AcknowledgePropertyChanged()
{
    m_changed.store(false);
    m_changedEvent.Reset();
}

VELDPropertyValue VELDPropertyImplementation::PropertyValue()
{
    switch (Type()) {
    case VELD::BoolProperty: {
        bool v = false;
        Get(v);
        return VELDPropertyValue(v);
    }
    case VELD::IntegerProperty: {
        VELDInt64 v = 0;
        Get(v);
        return VELDPropertyValue(v);
    }
    case VELD::FloatProperty: {
        VELDFloat64 v = 0;
        Get(v);
        return VELDPropertyValue(v);
    }
    case VELD::StringProperty: {
        VELDString v;
        Get(v);
        VELDPropertyValue value(VELDInt64(0));
        value.type = VELD::StringProperty;
        value.value.s = new VELDString(v);
        return value;
    }
    default: {
        VELDEnumStruct v;
        Get(v);
        return VELDPropertyValue(v);
    }
    }
}

void VELDPropertyImplementation::Rename(const char* oldPrefix, const char* newPrefix)
{
    VELD::RenameModulePart(m_name, oldPrefix, newPrefix);
}

// The object's reads and writes are the owner's.
void VELDPropertyImplementation::Set(bool value) { m_owner->Set(*this, value); }
void VELDPropertyImplementation::Set(VELDInt64 value) { m_owner->Set(*this, value); }
void VELDPropertyImplementation::Set(VELDInt32 value) { m_owner->Set(*this, static_cast<VELDInt64>(value)); }
void VELDPropertyImplementation::Set(VELDFloat64 value) { m_owner->Set(*this, value); }
void VELDPropertyImplementation::Set(const char* value) { m_owner->Set(*this, VELDString(value)); }
void VELDPropertyImplementation::Set(const VELDString& value) { m_owner->Set(*this, value); }
void VELDPropertyImplementation::Set(VELDEnumStruct value) { m_owner->Set(*this, value); }
void VELDPropertyImplementation::Set(const VELDString& items, int selected) { m_owner->Set(*this, items, selected); }
void VELDPropertyImplementation::Get(bool& value) { m_owner->Get(*this, value); }
void VELDPropertyImplementation::Get(VELDInt64& value) { m_owner->Get(*this, value); }
void VELDPropertyImplementation::Get(VELDFloat64& value) { m_owner->Get(*this, value); }
void VELDPropertyImplementation::Get(VELDString& value) { m_owner->Get(*this, value); }
void VELDPropertyImplementation::Get(VELDEnumStruct& value) { m_owner->Get(*this, value); }

void VELDPropertyImplementation::Get(VELDInt32& value)
{
    VELDInt64 wide = 0;
    m_owner->Get(*this, wide);
    value = static_cast<VELDInt32>(wide);
}

void VELDPropertyImplementation::Get(VELDArray<VELDString>& items, int& selected)
{
    VELDEnumStruct value;
    m_owner->Get(*this, value);
    items.Clear();
    for (int i = 0; i < value.Count(); ++i) items.Append(value.Item(i));
    selected = value.GetSelected();
}
