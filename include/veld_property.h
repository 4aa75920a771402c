// A typed, named, observable setting of a module, as the engine and other
// modules see it. The order of the operations is the object's layout.
#ifndef VELD_PROPERTY_H
#define VELD_PROPERTY_H

#include "veld_containers.h"
#include "veld_string.h"

class VELDEnumStruct;
class VELDEvent;
class VELDModule;
class VELDProperty;

// Runs inside a checked Set, after the value is stored.
typedef void (*VELDPropertySetCallback)(VELDProperty& property);
// Runs after a read, with a pointer to the copy just read, which it may
// replace.
typedef void (*VELDPropertyGetCallback)(VELDProperty& property, void* value);

class VELDProperty {
public:
    virtual VELDInt64 IntegerValue() = 0;
    // For an enum, the text of the selected item.
    virtual VELDString StringValue() = 0;
    virtual bool BoolValue() = 0;
    virtual VELDFloat64 FloatValue() = 0;
    virtual VELDEnumStruct* EnumValues() = 0;
    virtual const char* Name() = 0;       // "<module>.<short name>"
    virtual const char* ShortName() = 0;
    virtual const char* Unit() = 0;
    virtual VELDModule* Owner() = 0;
    virtual int Type() = 0;               // VELD::BoolProperty ... VELD::EnumProperty
    virtual int SubType() = 0;
    virtual bool IsMutable() = 0;
    virtual bool SetMutable(bool on) = 0;
    virtual bool PropertyChanged() = 0;
    virtual void AcknowledgePropertyChanged() = 0;
    virtual VELDEvent* GetPropertyChangedEvent() = 0;
    virtual VELDEvent& PropertyChangedEvent() = 0;
    virtual void Set(bool value) = 0;
    virtual void Set(VELDInt64 value) = 0;
    virtual void Set(VELDInt32 value) = 0;
    virtual void Set(VELDFloat64 value) = 0;
    virtual void Set(const char* value) = 0;
    virtual void Set(const VELDString& value) = 0;
    virtual void Set(VELDEnumStruct value) = 0;
    virtual void Set(const VELDString& items, int selected) = 0;
    virtual void Get(bool& value) = 0;
    virtual void Get(VELDInt64& value) = 0;
    virtual void Get(VELDInt32& value) = 0;
    virtual void Get(VELDFloat64& value) = 0;
    virtual void Get(VELDString& value) = 0;
    virtual void Get(VELDEnumStruct& value) = 0;
    virtual void Get(VELDArray<VELDString>& items, int& selected) = 0;
    virtual void SetSetCallback(VELDPropertySetCallback callback) = 0;
    virtual void SetGetCallback(VELDPropertyGetCallback callback) = 0;
    virtual void Lock(bool locked) = 0;
    virtual ~VELDProperty() {}
};

#endif
