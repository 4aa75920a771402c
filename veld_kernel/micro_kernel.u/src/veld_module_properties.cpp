// VELDModule: reading and writing properties, the callbacks of the special
// properties of inputs and outputs, and the look-ups by full name.
#include "veld.h"
#include "veld_action_impl.h"
#include "veld_input_impl.h"
#include "veld_io_monitor_impl.h"
#include "veld_module.h"
#include "veld_output_impl.h"
#include "veld_private.h"
#include "veld_property_impl.h"

namespace {

VELDPropertyImplementation& Impl(VELDProperty& property) { return static_cast<VELDPropertyImplementation&>(property); }

VELDString Text(const char* a, const char* b, const char* c = nullptr)
{
    VELDString text(a);
    text += b;
    if (c) text += c;
    return text;
}

// Integer into an enum: the value selects by index.
void SelectByIndex(VELDModule& module, VELDPropertyImplementation& property, VELDInt64 index)
{
    VELDEnumStruct& e = *property.m_value.EnumValue();
    const int n = e.Count();
    if (n > 0 && index >= 0 && index < n) {
        e.SetSelected(static_cast<int>(index));
        return;
    }
    if (n == 0 && index == -1) {
        e.SetSelected(-1);
        return;
    }
    VELDStreamedString text("Index ");
    text << index << " not among possible values for enum property " << property.Name();
    if (n > 1)
        text << " [0.." << n - 1 << "]";
    else if (n == 1)
        text << " [0]";
    else
        text << " [-1]";
    module.Report(text, VELD::Error, 0);
    if (n == 0) e.SetSelected(-1);
}

// A text into a string or an enum property. A checked write and a direct
// one differ for enums: the direct one also replaces the items of a locked
// property, and keeps the selection when the text matches no item.
void StoreText(VELDModule& module, VELDPropertyImplementation& property, const VELDString& value, bool direct)
{
    VELDPropertyValue& stored = property.m_value;
    if (stored.Type() == VELD::StringProperty) {
        if (!stored.value.s) stored.value.s = new VELDString();
        *stored.value.s = value;
        return;
    }
    VELDEnumStruct& e = *stored.EnumValue();
    if (VELDEnumStruct::IsEnumString(value)) {
        e.FromString(value, direct ? false : property.m_definition.locked);
        return;
    }
    if (e.Count() == 0) {
        module.Report(Text(direct ? "No possible value for enum property " : "No possible value for property ",
                           property.Name()),
                      VELD::Error, 0);
        return;
    }
    const int previous = e.GetSelected();
    if (e.Select(value)) return;
    if (direct) {
        e.SetSelected(previous);
        VELDString text("\"");
        text += value;
        text += "\" not among possible values for enum property ";
        text += property.Name();
        module.Report(text, VELD::Error, 0);
    } else {
        module.Report(Text(value, " does not match any of the possible values for property ", property.Name()),
                      VELD::Error, 0);
    }
}

}  // namespace

// ---------------------------------------------------------------------------
// The checked and the direct write share the store; what differs is told by
// `direct`.

namespace {

struct Write {
    enum Kind { Bool, Integer, Float, String, Enum, Items };
    Kind kind;
    bool b;
    VELDInt64 i;
    VELDFloat64 f;
    const VELDString* s;
    const VELDEnumStruct* e;
    int selected;
};

bool Fits(const Write& w, int type)
{
    switch (w.kind) {
    case Write::Bool: return type == VELD::BoolProperty;
    case Write::Integer: return type == VELD::IntegerProperty || type == VELD::EnumProperty;
    case Write::Float: return type == VELD::FloatProperty;
    case Write::String: return type == VELD::StringProperty || type == VELD::EnumProperty;
    default: return type == VELD::EnumProperty;
    }
}

const char* MisfitText(const Write& w)
{
    switch (w.kind) {
    case Write::Bool: return "Can't set boolean value for property ";
    case Write::Integer: return "Can't set integer value for property ";
    case Write::Float: return "Can't set float value for property ";
    case Write::String: return "Can't set string value for property ";
    default: return "Can't set enum values for property ";
    }
}

void Store(VELDModule& module, VELDPropertyImplementation& p, const Write& w, bool direct)
{
    switch (w.kind) {
    case Write::Bool: p.StoreBool(w.b); break;
    case Write::Integer:
        if (p.Type() == VELD::EnumProperty)
            SelectByIndex(module, p, w.i);
        else
            p.StoreInteger(w.i);
        break;
    case Write::Float: p.StoreFloat(w.f); break;
    case Write::String: StoreText(module, p, *w.s, direct); break;
    case Write::Enum: p.m_value.EnumValue()->Copy(*w.e); break;
    case Write::Items:
        p.m_value.EnumValue()->FromString(*w.s, false);
        p.m_value.EnumValue()->SetSelected(w.selected);
        break;
    }
}

Write BoolWrite(bool v) { return Write{Write::Bool, v, 0, 0, nullptr, nullptr, 0}; }
Write IntegerWrite(VELDInt64 v) { return Write{Write::Integer, false, v, 0, nullptr, nullptr, 0}; }
Write FloatWrite(VELDFloat64 v) { return Write{Write::Float, false, 0, v, nullptr, nullptr, 0}; }
Write StringWrite(const VELDString& v) { return Write{Write::String, false, 0, 0, &v, nullptr, 0}; }
Write EnumWrite(const VELDEnumStruct& v) { return Write{Write::Enum, false, 0, 0, nullptr, &v, 0}; }
Write ItemsWrite(const VELDString& items, int selected)
{
    return Write{Write::Items, false, 0, 0, &items, nullptr, selected};
}

void CheckedWrite(VELDModule& module, VELDProperty& property, const Write& w)
{
    VELDPropertyImplementation& p = Impl(property);
    const char* refusal = nullptr;
    if (!p.m_definition.canBeModifiedAfterStart && (module.State() & VELD::LivingState))
        refusal = ". This property can't be modified after start.";
    else if (p.m_definition.readOnly)
        refusal = ". This property is read only.";
    else if (!p.IsMutable())
        refusal = ". This property is not mutable.";
    if (refusal) {
        module.Error(Text("Failure while trying to set value of property ", p.Name(), refusal), 1,
                     VELDModule::ErrorGeneric);
        return;
    }
    if (!Fits(w, p.Type())) {
        module.Error(Text(MisfitText(w), p.Name()), 1, VELDModule::ErrorGeneric);
        return;
    }
    VELDMutexGuard guard(module.m_structureLock);
    Store(module, p, w, false);
    p.m_definition.needs2BeInitialized = false;
    // An exception of the callback releases the lock through the guard.
    if (p.m_setCallback) p.m_setCallback(p);
    p.MarkChanged();
}

void DirectWrite(VELDModule& module, VELDProperty& property, const Write& w)
{
    VELDPropertyImplementation& p = Impl(property);
    if (!Fits(w, p.Type())) {
        module.Error(Text(MisfitText(w), p.Name()), 1, VELDModule::ErrorGeneric);
        return;
    }
    VELDMutexGuard guard(module.m_structureLock);
    Store(module, p, w, true);
    p.MarkChanged();
}

}  // namespace

void VELDModule::Set(VELDProperty& property, bool value) { CheckedWrite(*this, property, BoolWrite(value)); }
void VELDModule::Set(VELDProperty& property, VELDInt64 value) { CheckedWrite(*this, property, IntegerWrite(value)); }
void VELDModule::Set(VELDProperty& property, VELDFloat64 value) { CheckedWrite(*this, property, FloatWrite(value)); }
void VELDModule::Set(VELDProperty& property, const VELDString& value) { CheckedWrite(*this, property, StringWrite(value)); }
void VELDModule::Set(VELDProperty& property, const VELDEnumStruct& value) { CheckedWrite(*this, property, EnumWrite(value)); }
void VELDModule::Set(VELDProperty& property, const VELDString& items, int selected) { CheckedWrite(*this, property, ItemsWrite(items, selected)); }
void VELDModule::DirectSet(VELDProperty& property, bool value) { DirectWrite(*this, property, BoolWrite(value)); }
void VELDModule::DirectSet(VELDProperty& property, VELDInt64 value) { DirectWrite(*this, property, IntegerWrite(value)); }
void VELDModule::DirectSet(VELDProperty& property, VELDFloat64 value) { DirectWrite(*this, property, FloatWrite(value)); }
void VELDModule::DirectSet(VELDProperty& property, const VELDString& value) { DirectWrite(*this, property, StringWrite(value)); }
void VELDModule::DirectSet(VELDProperty& property, const VELDEnumStruct& value) { DirectWrite(*this, property, EnumWrite(value)); }
void VELDModule::DirectSet(VELDProperty& property, const VELDString& items, int selected) { DirectWrite(*this, property, ItemsWrite(items, selected)); }

// ---------------------------------------------------------------------------
// Reads

namespace {

// The type test of a read, then the copy and the get callback under the
// structure lock.
template <class T, class Copy>
void Read(VELDModule& module, VELDProperty& property, T& value, bool fits, const char* misfit, Copy copy)
{
    VELDPropertyImplementation& p = Impl(property);
    if (!fits) {
        module.Error(Text(misfit, p.Name()), 1, VELDModule::ErrorGeneric);
        return;
    }
    VELDMutexGuard guard(module.m_structureLock);
    copy(p, value);
    if (p.m_getCallback) p.m_getCallback(p, &value);
}

}  // namespace

void VELDModule::Get(VELDProperty& property, bool& value)
{
    Read(*this, property, value, property.Type() == VELD::BoolProperty, "Can't get boolean value from property ",
         [](VELDPropertyImplementation& p, bool& v) { v = p.BoolValue(); });
}

void VELDModule::Get(VELDProperty& property, VELDInt64& value)
{
    const int type = property.Type();
    Read(*this, property, value, type == VELD::IntegerProperty || type == VELD::EnumProperty,
         "Can't get integer value from property ",
         [](VELDPropertyImplementation& p, VELDInt64& v) { v = p.IntegerValue(); });
}

void VELDModule::Get(VELDProperty& property, VELDFloat64& value)
{
    Read(*this, property, value, property.Type() == VELD::FloatProperty, "Can't get floating point value from property ",
         [](VELDPropertyImplementation& p, VELDFloat64& v) { v = p.FloatValue(); });
}

void VELDModule::Get(VELDProperty& property, VELDString& value)
{
    const int type = property.Type();
    Read(*this, property, value, type == VELD::StringProperty || type == VELD::EnumProperty,
         "Can't get string value from property ",
         [](VELDPropertyImplementation& p, VELDString& v) { v = p.StringValue(); });
}

void VELDModule::Get(VELDProperty& property, VELDEnumStruct& value)
{
    Read(*this, property, value, property.Type() == VELD::EnumProperty, "Can't get enum values from property ",
         [](VELDPropertyImplementation& p, VELDEnumStruct& v) { v.Copy(*p.m_value.EnumValue()); });
}

#define VELD_STATIC_GET(Type)                                                    \
    void VELDModule::Get(VELDModule& owner, VELDProperty& property, Type& value) \
    {                                                                            \
        VELDMutexGuard propertyGuard(owner.m_propertyLock);                      \
        VELDMutexGuard structureGuard(owner.m_structureLock);                    \
        owner.Get(property, value);                                              \
    }

VELD_STATIC_GET(bool)
VELD_STATIC_GET(VELDInt64)
VELD_STATIC_GET(VELDFloat64)
VELD_STATIC_GET(VELDString)
VELD_STATIC_GET(VELDEnumStruct)

#undef VELD_STATIC_GET

namespace {

template <class T>
T ReadNamed(VELDModule& module, const char* shortName, T value)
{
    module.Get(module.Property(shortName), value);
    return value;
}

}  // namespace

bool VELDModule::GetBoolProperty(const char* shortName) { return ReadNamed(*this, shortName, false); }
VELDInt64 VELDModule::GetIntegerProperty(const char* shortName) { return ReadNamed(*this, shortName, VELDInt64(0)); }
VELDFloat64 VELDModule::GetFloatProperty(const char* shortName) { return ReadNamed(*this, shortName, VELDFloat64(0)); }
VELDString VELDModule::GetStringProperty(const char* shortName) { return ReadNamed(*this, shortName, VELDString()); }
VELDEnumStruct VELDModule::GetEnumProperty(const char* shortName) { return ReadNamed(*this, shortName, VELDEnumStruct()); }

// ---------------------------------------------------------------------------
// The special properties of inputs and outputs

namespace {

// "<module>.<element>.<suffix>" gives "<element>".
VELDString ElementShortName(VELDProperty& property)
{
    VELDString name(property.Name());
    int dot = 0;
    if (name.ReverseFind('.', dot)) name = name.Left(dot);
    const char* module = property.Owner()->Name();
    const int prefix = VELD::Strlen(module) + 1;
    if (name.StartsWith(module) && name.Length() > prefix && name[prefix - 1] == '.') name = name.Tail(prefix - 1);
    return name;
}

VELDInputImplementation& InputOf(VELDProperty& property)
{
    return static_cast<VELDInputImplementation&>(property.Owner()->Input(ElementShortName(property)));
}

VELDOutputImplementation& OutputOf(VELDProperty& property)
{
    return static_cast<VELDOutputImplementation&>(property.Owner()->Output(ElementShortName(property)));
}

}  // namespace

void VELDModule::SetInputSubsamplingProperty(VELDProperty& property)
{
    VELDInputImplementation& input = InputOf(property);
    const int rate = static_cast<int>(property.IntegerValue());
    input.definition.subsampling = rate;
    VELDIOMonitorImplementation* fifo = input.monitor.load();
    if (input.definition.readerType <= VELD::LastOrNextReader && fifo)
        fifo->SetSubsamplingRate(input.readerHandle.load(), rate);
}

void VELDModule::SetInputReaderTypeProperty(VELDProperty& property)
{
    VELDInputImplementation& input = InputOf(property);
    const int previous = input.definition.readerType;
    const int wanted = static_cast<int>(property.IntegerValue());
    VELDPropertyImplementation& p = Impl(property);
    if (previous < VELD::Wait4NextReader && wanted < VELD::Wait4NextReader) {
        input.definition.readerType = wanted;
        if (VELDIOMonitorImplementation* fifo = input.monitor.load())
            fifo->SetReaderType(input.readerHandle.load(), wanted);
    } else if (previous < VELD::Wait4NextReader) {
        p.StoreInteger(previous);
        VELD::ReportError(Text("Bad parameter: The input ", input.Name(),
                               " cannot be switched to SamplingReader or Wait4NextReader."),
                          1);
    } else if (wanted != previous) {
        p.StoreInteger(previous);
        VELD::ReportError(Text("Bad parameter: The input ", input.Name(),
                               " is a SamplingReader or Wait4NextReader and cannot be switched to FifoReader, "
                               "NeverSkippingReader or LastOrNextReader"),
                          1);
    }
    // The engine's time module may show the inputs' settings.
    if (VELDSymbol* symbol = VELDPrivate::FindSymbol("Engine.time")) {
        VELDModule* timeModule = symbol->module;
        if (timeModule && timeModule->HasAction("refreshInputProperties"))
            timeModule->Action("refreshInputProperties").DoIt(input.Name());
    }
}

void VELDModule::SetOutputSubsamplingProperty(VELDProperty& property)
{
    VELDOutputImplementation& output = OutputOf(property);
    const int rate = static_cast<int>(property.IntegerValue());
    output.definition.subsampling = rate;
    VELDMutexGuard guard(output.monitor->mutex);
    output.monitor->subsamplingPeriod = rate;
    output.monitor->subsamplingCountdown = rate;
}

void VELDModule::SetOutputFifoSizeProperty(VELDProperty& property)
{
    VELDModule& module = *property.Owner();
    VELDOutputImplementation& output = OutputOf(property);
    if (module.IsStarted()) {
        Impl(property).StoreInteger(output.definition.fifoSize);
        module.Report("Cannot change the output fifo sizes while module is running.", VELD::Error, 0);
        return;
    }
    output.definition.fifoSize = static_cast<int>(property.IntegerValue());
    output.monitor->ResetFifoSize(output.definition.fifoSize);
}

void VELDModule::SetOutputPeriodicProperty(VELDProperty& property)
{
    OutputOf(property).periodic = property.BoolValue();
}

// ---------------------------------------------------------------------------
// Look-ups by full name, outside any module

namespace {

// The common form of the look-ups of texts and enums: the symbols stay
// locked while the property is found and read.
template <class T>
T LookUp(const char* fullName, bool* ok, bool (*fits)(int), const char* misfit)
{
    T value;
    VELDPrivate::LockSymbols();
    try {
        VELDProperty* property = VELD::Property(fullName);
        if (!property) {
            if (ok)
                *ok = false;
            else
                VELD::ReportError(Text("Can't get value of property ", fullName, ". The symbol is undefined."), 0);
        } else if (!fits(property->Type())) {
            if (ok)
                *ok = false;
            else
                VELD::ReportError(Text(misfit, fullName, fits(VELD::StringProperty) ? ". It is not a string or an enum."
                                                                                      : ". It is not an enum."),
                                  0);
        } else {
            VELDModule::Get(*property->Owner(), *property, value);
            if (ok) *ok = true;
        }
    } catch (...) {
        VELDPrivate::UnlockSymbols();
        throw;
    }
    VELDPrivate::UnlockSymbols();
    return value;
}

bool StringOrEnum(int type) { return type == VELD::StringProperty || type == VELD::EnumProperty; }
bool EnumOnly(int type) { return type == VELD::EnumProperty; }

}  // namespace

VELDString VELD::GetStringProperty(const char* fullName, bool* ok)
{
    return LookUp<VELDString>(fullName, ok, StringOrEnum, "Can't get string value of property ");
}

VELDEnumStruct VELD::GetEnumsProperty(const char* fullName, bool* ok)
{
    return LookUp<VELDEnumStruct>(fullName, ok, EnumOnly, "Can't get string value of property ");
}
