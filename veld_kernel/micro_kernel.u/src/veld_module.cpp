// VELDModule: elements and their lists, registration, look-ups, reports,
// lives, threads, performance figures, waits and writing. Property access is
// in veld_module_properties.cpp, reading in veld_module_reading.cpp.
#include "veld_module.h"

#include <vector>

#include "veld.h"
#include "veld_action_impl.h"
#include "veld_clock.h"
#include "veld_input_impl.h"
#include "veld_output_impl.h"
#include "veld_output_writing.h"
#include "veld_private.h"
#include "veld_property_impl.h"
#include "veld_thread.h"

namespace {

const char* const kNamePattern = "^[a-zA-Z][a-zA-Z_0-9]*$";
// A plain module's outputs may be named with dots and colons.
const char* const kWideNamePattern = "^[a-zA-Z][a-zA-Z_0-9\\.:]*$";

// How the messages of each kind of element name it.
const VELDModule::ElementKind kInput = {"Input", "input", "an input"};
const VELDModule::ElementKind kOutput = {"Output", "output", "an output"};
const VELDModule::ElementKind kProperty = {"Property", "property", "a property"};
const VELDModule::ElementKind kAction = {"Action", "action", "an action"};

bool NameMatches(const char* name, const char* pattern)
{
    // One expression per call: a VELDRegExp keeps the state of its last
    // match, so it is not shared between threads.
    VELDRegExp expression(pattern);
    return expression.exec(name);
}

// What the cursor logic of New...X needs of each kind of element.
const VELDString& ElementName(VELDInputImplementation* e) { return e->name; }
const VELDString& ElementName(VELDOutputImplementation* e) { return e->name; }
const VELDString& ElementName(VELDPropertyImplementation* e) { return e->m_name; }
const VELDString& ElementName(VELDActionImplementation* e) { return e->m_name; }
const char* DefinitionName(VELDInputImplementation* e) { return e->definition.name; }
const char* DefinitionName(VELDOutputImplementation* e) { return e->definition.name; }
const char* DefinitionName(VELDPropertyImplementation* e) { return e->DefinitionName(); }
const char* DefinitionName(VELDActionImplementation* e) { return e->DefinitionName(); }
// Special properties (".subsampling" and the like) go with their input or
// output: the re-definition of the property list passes them by.
bool Special(VELDInputImplementation*) { return false; }
bool Special(VELDOutputImplementation*) { return false; }
bool Special(VELDPropertyImplementation* e) { return e->m_special; }
bool Special(VELDActionImplementation*) { return false; }

template <class E>
E& At(VELDBasicListItem* item)
{
    return *VELDList<E*>::Value(item);
}

template <class E>
int PositionOf(const VELDList<E*>& list, VELDBasicListItem* item)
{
    int index = 0;
    for (VELDBasicListItem* it = list.First(); it && it != item; it = it->successor) ++index;
    return index;
}

template <class E>
E* FindByFullName(const VELDList<E*>& list, const VELDString& fullName)
{
    for (VELDBasicListItem* it = list.First(); it; it = it->successor) {
        E* element = VELDList<E*>::Value(it);
        if (ElementName(element) == fullName) return element;
    }
    return nullptr;
}

template <class E>
E* FindByIndex(const VELDList<E*>& list, int index)
{
    if (index < 0) return nullptr;
    VELDBasicListItem* it = list.First();
    for (int i = 0; it && i < index; ++i) it = it->successor;
    return it ? VELDList<E*>::Value(it) : nullptr;
}

// The step that makes re-definition work. `remove` destroys an element
// that the model no longer declares.
template <class E>
E* MakeElement()
{
    return new E();
}

template <class E, class Remove, class Make = E* (*)()>
E* NewElementX(VELDList<E*>& list, VELDBasicListItem*& cursor, const VELDString& fullName,
               const char* definitionName, bool& isNew, int& index, Remove remove, Make make = MakeElement<E>)
{
    VELDBasicListItem* found = nullptr;
    for (VELDBasicListItem* it = cursor; it; it = it->successor)
        if (!Special(VELDList<E*>::Value(it)) && ElementName(VELDList<E*>::Value(it)) == fullName) {
            found = it;
            break;
        }
    if (found) {
        // The model stopped declaring what stands between the cursor and
        // the element found.
        std::vector<E*> skipped;
        for (VELDBasicListItem* it = cursor; it != found; it = it->successor)
            if (!Special(VELDList<E*>::Value(it))) skipped.push_back(VELDList<E*>::Value(it));
        for (E* element : skipped) remove(*element);
        E* existing = VELDList<E*>::Value(found);
        if (DefinitionName(existing) == definitionName) {
            isNew = false;
            cursor = found->successor;
            index = PositionOf(list, found);
            return existing;
        }
        // Another element under an old name: the new one takes its place.
        E* element = make();
        auto* item = new typename VELDList<E*>::Item(element);
        list.InsertItemAfter(found, item);
        cursor = item->successor;
        remove(*existing);
        isNew = true;
        index = PositionOf(list, item);
        return element;
    }
    E* element = make();
    auto* item = new typename VELDList<E*>::Item(element);
    if (cursor)
        list.InsertItemBefore(cursor, item);
    else
        list.AppendItem(item);
    isNew = true;
    index = PositionOf(list, item);
    return element;
}

template <class E>
void UnlinkAndDestroy(VELDList<E*>& list, E* element, VELDBasicListItem*& cursor)
{
    typename VELDList<E*>::Item* item = list.Find(element);
    if (!item) return;
    if (cursor == item) cursor = item->successor;
    list.Remove(item);
    delete element;
}

template <class E>
std::vector<E*> Snapshot(const VELDList<E*>& list, VELDBasicListItem* from)
{
    std::vector<E*> out;
    for (VELDBasicListItem* it = from; it; it = it->successor) out.push_back(VELDList<E*>::Value(it));
    return out;
}

// Runs `body` under the kernel's configuration lock, released on all paths.
template <class Body>
void UnderConfiguration(const char* reason, Body body)
{
    VELDPrivate::LockConfiguration(reason);
    try {
        body();
    } catch (...) {
        VELDPrivate::UnlockConfiguration();
        throw;
    }
    VELDPrivate::UnlockConfiguration();
}

void ErrorHook(void* module, const char* text)
{
    static_cast<VELDModule*>(module)->Error(text, 1, VELDModule::ErrorGeneric);
}

void ReportHook(void* module, const char* text, int level, int verbosity)
{
    static_cast<VELDModule*>(module)->Report(text, level, verbosity);
}

void SetProcessorProperty(VELDProperty& property)
{
    VELDModule& module = *property.Owner();
    VELDMutexGuard guard(module.m_structureLock);
    const int cpu = static_cast<int>(property.IntegerValue());
    for (VELDBasicListItem* it = module.m_threads.First(); it; it = it->successor)
        VELDList<VELDThread*>::Value(it)->SetProcessor(cpu);
}

void GetPerfMonProperties(VELDProperty& property, void* value)
{
    VELDModule& module = *property.Owner();
    const bool load = &property == module.CPULoad;
    VELDInt64 sum = 0;
    {
        VELDMutexGuard guard(module.m_structureLock);
        if (module.m_threads.Empty()) {
            *static_cast<VELDInt64*>(value) = 0;
            return;
        }
        for (VELDBasicListItem* it = module.m_threads.First(); it; it = it->successor) {
            VELDThread* thread = VELDList<VELDThread*>::Value(it);
            sum += load ? thread->GetCPULoad() : thread->GetContextSwitches();
        }
    }
    *static_cast<VELDInt64*>(value) = (sum + 50) / 100;
}

VELDPropertyDefinition IntegerDefinition(const char* name, VELDInt64 value, bool modifiableAfterStart,
                                         bool readOnly)
{
    return VELDPropertyDefinition(name, new VELDPropertyValue(value), nullptr, false, modifiableAfterStart,
                                  readOnly, true);
}

}  // namespace

// ---------------------------------------------------------------------------
// Construction

VELDModule::VELDModule(const char* name, bool monitorPerformance, bool hasProcessor)
    : VELDModuleBase(name), counter(nullptr), nbPeriods(nullptr), averagePeriod(nullptr), maxPeriod(nullptr),
      minPeriod(nullptr), contextSwitches(nullptr), CPULoad(nullptr), processor(nullptr), m_periodHead(0),
      m_periodCount(0), m_periodValid(0), m_nbMeasuredPeriods(0), m_lastPeriodTime(-1), m_periodSum(0),
      m_minPeriod(0), m_maxPeriod(0), m_currentInput(nullptr), m_inputCursor(nullptr), m_outputCursor(nullptr),
      m_propertyCursor(nullptr), m_actionCursor(nullptr), m_state(VELD::LivingState), m_lastErrorCode(0),
      m_threaded(true), m_dieEvent(false, nullptr), m_allDeadEvent(false, nullptr), m_nbLives(0),
      m_builtInPropertiesEnd(nullptr), m_nbSpecialProperties(0), m_actionTable(nullptr), m_actionTableSize(0)
{
    m_context.dieEvent = &m_dieEvent;
    m_context.state = &m_state;
    m_context.module = this;
    m_context.error = ErrorHook;
    m_context.report = ReportHook;

    if (hasProcessor) {
        processor = &NewProperty(IntegerDefinition("processor", -1, true, false));
        processor->SetSetCallback(SetProcessorProperty);
    }
    if (monitorPerformance) {
        counter = &NewProperty(IntegerDefinition("counter", 0, false, true));
        nbPeriods = &NewProperty(IntegerDefinition("nbPeriods", 10, true, false));
        averagePeriod = &NewProperty(IntegerDefinition("averagePeriod", 0, false, true));
        minPeriod = &NewProperty(IntegerDefinition("minPeriod", 0, false, true));
        maxPeriod = &NewProperty(IntegerDefinition("maxPeriod", 0, false, true));
        contextSwitches = &NewProperty(IntegerDefinition("contextSwitches", 0, false, true));
        CPULoad = &NewProperty(IntegerDefinition("CPULoad", 0, false, true));
        contextSwitches->SetGetCallback(GetPerfMonProperties);
        CPULoad->SetGetCallback(GetPerfMonProperties);
        ResizePeriodRing(10);
    }
    m_builtInPropertiesEnd = m_properties.Last();
}

VELDModule::~VELDModule()
{
    if (!VELDPrivate::kernel) {
        for (VELDBasicListItem* it = m_inputs.First(); it; it = it->successor) delete &At<VELDInputImplementation>(it);
        for (VELDBasicListItem* it = m_outputs.First(); it; it = it->successor) delete &At<VELDOutputImplementation>(it);
        for (VELDBasicListItem* it = m_properties.First(); it; it = it->successor)
            delete &At<VELDPropertyImplementation>(it);
        for (VELDBasicListItem* it = m_actions.First(); it; it = it->successor) delete &At<VELDActionImplementation>(it);
        return;
    }
    m_inputCursor = m_outputCursor = m_propertyCursor = m_actionCursor = nullptr;
    for (VELDInputImplementation* input : Snapshot(m_inputs, m_inputs.First())) RemoveInput(*input);
    for (VELDOutputImplementation* output : Snapshot(m_outputs, m_outputs.First())) RemoveOutput(*output);
    for (VELDPropertyImplementation* property : Snapshot(m_properties, m_properties.First()))
        RemoveProperty(*property);
    for (VELDActionImplementation* action : Snapshot(m_actions, m_actions.First())) RemoveAction(*action);
    // What remains are names registered on the module's behalf (its own).
    for (VELDBasicListItem* it = m_symbols.First(); it; it = it->successor)
        VELDPrivate::UnregisterSymbol(VELDList<VELDStackedString<40>>::Value(it));
}

VELDStackedString<40> VELDModule::FullName(const char* shortName) const
{
    VELDStackedString<40> full(Name());
    full += ".";
    full += shortName;
    return full;
}

// ---------------------------------------------------------------------------
// Elements

void VELDModule::CheckDeclaration(VELDMutexGuard& guard, const ElementKind& kind, const char* definitionName,
                                  const char* shortName, const char* pattern)
{
    if (IsDying()) {
        guard.unlock_mtx();
        throw VELD::ModuleDied;
    }
    VELDStreamedString text;
    int verbosity = 1;
    if (!definitionName) {
        text << "Call to New" << kind.type << " failed. Bad " << kind.name << " definition.";
        verbosity = 2;
    } else if (shortName && !NameMatches(shortName, pattern)) {
        text << "Trying to create " << kind.article << " with an invalid name: " << shortName;
    } else {
        return;
    }
    guard.unlock_mtx();
    Error(text, verbosity, ErrorGeneric);
    throw VELD::ErrorException;
}

void VELDModule::SymbolTaken(VELDMutexGuard& guard, const ElementKind& kind, const char* fullName)
{
    guard.unlock_mtx();
    VELDStreamedString text;
    text << "Can't create " << kind.name << " " << fullName << ". The symbol already exists.";
    Error(text, 1, ErrorGeneric);
    throw VELD::ErrorException;
}

void VELDModule::StartThread(void* (*body)(void*), VELDThreadFunction function, const char* failure)
{
    std::atomic<bool> started(false);
    VELDThreadStartRecord record{this, function, &started};
    if (!VELD::CreateThread(body, &record)) {
        Error(failure, 1, ErrorGeneric);
        return;
    }
    // The record lives here until the thread has read it.
    while (!started.load()) VELD::Wait4AWhile();
}

VELDInputImplementation* VELDModule::NewInputX(const VELDStackedString<40>& fullName, const char* definitionName,
                                               bool& isNew, int& index)
{
    return NewElementX(m_inputs, m_inputCursor, fullName, definitionName, isNew, index,
                       [this](VELDInputImplementation& e) { RemoveInput(e); });
}

VELDOutputImplementation* VELDModule::NewOutputX(const VELDStackedString<40>& fullName, const char* definitionName,
                                                 bool& isNew, int& index)
{
    VELDOutputDefinition definition = {definitionName, 0, VELDTypeInfo(), 1, 16, 1, 1};
    return NewOutputX(fullName, definition, isNew, index);
}

VELDOutputImplementation* VELDModule::NewOutputX(const VELDStackedString<40>& fullName,
                                                 const VELDOutputDefinition& definition, bool& isNew, int& index)
{
    // An output is built with its name, its definition and the module's
    // death event, which end the waits of its FIFO.
    return NewElementX(
        m_outputs, m_outputCursor, fullName, definition.name, isNew, index,
        [this](VELDOutputImplementation& e) { RemoveOutput(e); },
        [&]() { return new VELDOutputImplementation(fullName, definition, &m_dieEvent); });
}

VELDPropertyImplementation* VELDModule::NewPropertyX(const VELDStackedString<40>& fullName,
                                                     const char* definitionName, bool& isNew)
{
    int index = 0;
    return NewElementX(m_properties, m_propertyCursor, fullName, definitionName, isNew, index,
                       [this](VELDPropertyImplementation& e) { RemoveProperty(e); });
}

VELDActionImplementation* VELDModule::NewActionX(const VELDStackedString<40>& fullName, const char* definitionName,
                                                 bool& isNew)
{
    int index = 0;
    return NewElementX(m_actions, m_actionCursor, fullName, definitionName, isNew, index,
                       [this](VELDActionImplementation& e) { RemoveAction(e); });
}

VELDInput& VELDModule::NewInput(const VELDInputDefinition& definition, const char* shortName)
{
    return NewInputChecked(definition, shortName, false);
}

VELDOutput& VELDModule::NewOutput(const VELDOutputDefinition& definition, const char* shortName)
{
    return NewOutputChecked(definition, shortName, false, false);
}

VELDInput& VELDModule::NewInputChecked(const VELDInputDefinition& definition, const char* shortName, bool component)
{
    VELDMutexGuard guard(m_structureLock);
    CheckDeclaration(guard, kInput, definition.name, shortName, kNamePattern);
    const char* name = shortName ? shortName : definition.name;
    const VELDStackedString<40> full = FullName(name);
    bool isNew = false;
    int index = 0;
    VELDInputImplementation* input = NewInputX(full, definition.name, isNew, index);
    if (!isNew) return *input;
    input->name = full;
    input->shortName = name;
    input->definition = definition;
    input->owner = this;
    if (!VELDPrivate::RegisterInput(input)) {
        RemoveInputX(*input);
        SymbolTaken(guard, kInput, full);
    }
    m_symbols.Append(full);
    NewSpecialProperties(*input);
    if (component) VELDPrivate::ComponentInputCreated(full, Name(), name, index);
    return *input;
}

VELDOutput& VELDModule::NewOutputChecked(const VELDOutputDefinition& definition, const char* shortName,
                                         bool narrowName, bool component)
{
    VELDMutexGuard guard(m_structureLock);
    CheckDeclaration(guard, kOutput, definition.name, shortName, narrowName ? kNamePattern : kWideNamePattern);
    const char* name = shortName ? shortName : definition.name;
    const VELDStackedString<40> full = FullName(name);
    VELDOutputDefinition copy = definition;
    if (copy.size != 1) copy.type.value |= VELD::VectorFlag;
    bool isNew = false;
    int index = 0;
    VELDOutputImplementation* output = NewOutputX(full, copy, isNew, index);
    if (!isNew) return *output;
    try {
        output->AllocOutputBuffer(copy.size, true);
    } catch (...) {
        RemoveOutputX(*output);
        throw;
    }
    if (!VELDPrivate::RegisterOutput(output)) {
        RemoveOutputX(*output);
        SymbolTaken(guard, kOutput, full);
    }
    m_symbols.Append(full);
    NewSpecialProperties(*output);
    if (component)
        VELDPrivate::ComponentOutputCreated(full, Name(), name, index);
    else
        VELDPrivate::ModuleOutputCreated(full, Name(), name, index);
    return *output;
}

VELDProperty& VELDModule::NewProperty(const VELDPropertyDefinition& definition, const char* shortName)
{
    VELDMutexGuard guard(m_structureLock);
    CheckDeclaration(guard, kProperty, definition.name, shortName, kNamePattern);
    const char* name = shortName ? shortName : definition.name;
    return NewPropertyNamed(definition, FullName(name), name);
}

VELDProperty& VELDModule::NewPropertyNamed(const VELDPropertyDefinition& definition,
                                           const VELDStackedString<40>& fullName, const char* shortName)
{
    VELDMutexGuard guard(m_structureLock);
    bool isNew = false;
    VELDPropertyImplementation* property = NewPropertyX(fullName, definition.name, isNew);
    if (!isNew) return *property;
    property->m_name = fullName;
    property->m_shortName = shortName;
    property->m_definition = definition;
    property->m_owner = this;
    property->m_value = definition.value ? *definition.value : VELDPropertyValue();
    if (!VELDPrivate::RegisterProperty(property)) {
        RemovePropertyX(*property);
        SymbolTaken(guard, kProperty, fullName);
    }
    m_symbols.Append(fullName);
    return *property;
}

VELDProperty& VELDModule::NewSpecialProperty(const VELDPropertyDefinition& definition, const char* fullName)
{
    VELDMutexGuard guard(m_structureLock);
    CheckDeclaration(guard, kProperty, definition.name, nullptr, nullptr);
    const VELDStackedString<40> full(fullName);
    int dot = 0;
    const char* shortName = full.ReverseFind('.', dot) ? fullName + dot + 1 : fullName;
    // Outside the cursor's walk: the property belongs to its element.
    VELDBasicListItem* cursor = m_propertyCursor;
    m_propertyCursor = nullptr;
    VELDProperty* property = nullptr;
    try {
        property = &NewPropertyNamed(definition, full, shortName);
    } catch (...) {
        m_propertyCursor = cursor;
        throw;
    }
    m_propertyCursor = cursor;
    static_cast<VELDPropertyImplementation*>(property)->m_special = true;
    return *property;
}

VELDAction& VELDModule::NewAction(const VELDActionDefinition& definition, const char* shortName)
{
    VELDMutexGuard guard(m_structureLock);
    CheckDeclaration(guard, kAction, definition.name, shortName, kNamePattern);
    const char* name = shortName ? shortName : definition.name;
    const VELDStackedString<40> full = FullName(name);
    bool isNew = false;
    VELDActionImplementation* action = NewActionX(full, definition.name, isNew);
    if (!isNew) return *action;
    action->m_name = full;
    action->m_shortName = name;
    action->m_action = definition.action ? new VELDActionFunction(*definition.action) : nullptr;
    action->m_allowedWhenComponentDead = definition.allowedWhenComponentDead;
    action->m_owner = this;
    action->m_definitionName = definition.name;
    if (m_actionTable && &definition >= m_actionTable && &definition < m_actionTable + m_actionTableSize)
        action->m_index = static_cast<int>(&definition - m_actionTable);
    else
        action->m_index = PositionOf(m_actions, m_actions.Find(action));
    if (!VELDPrivate::RegisterAction(action)) {
        RemoveActionX(*action);
        SymbolTaken(guard, kAction, full);
    }
    m_symbols.Append(full);
    return *action;
}

namespace {

VELDStackedString<40> Suffixed(const VELDString& name, const char* suffix)
{
    VELDStackedString<40> full(name);
    full += suffix;
    return full;
}

}  // namespace

void VELDModule::NewSpecialProperties(VELDInputImplementation& input)
{
    VELDProperty& subsampling = NewSpecialProperty(
        IntegerDefinition("subsampling", input.definition.subsampling, true, false), Suffixed(input.name, ".subsampling"));
    subsampling.SetSetCallback(SetInputSubsamplingProperty);
    VELDProperty& readerType = NewSpecialProperty(
        IntegerDefinition("readerType", input.definition.readerType, true, false), Suffixed(input.name, ".readerType"));
    readerType.SetSetCallback(SetInputReaderTypeProperty);
    m_nbSpecialProperties += 2;
}

void VELDModule::NewSpecialProperties(VELDOutputImplementation& output)
{
    VELDProperty& subsampling =
        NewSpecialProperty(IntegerDefinition("subsampling", output.definition.subsampling, true, false),
                           Suffixed(output.name, ".subsampling"));
    subsampling.SetSetCallback(SetOutputSubsamplingProperty);
    VELDProperty& fifoSize = NewSpecialProperty(
        IntegerDefinition("fifosize", output.definition.fifoSize, true, false), Suffixed(output.name, ".fifosize"));
    fifoSize.SetSetCallback(SetOutputFifoSizeProperty);
    VELDProperty& periodic =
        NewSpecialProperty(VELDPropertyDefinition("periodic", new VELDPropertyValue(false), nullptr, false, false,
                                                  false, true),
                           Suffixed(output.name, ".periodic"));
    periodic.SetSetCallback(SetOutputPeriodicProperty);
    m_nbSpecialProperties += 3;
}

void VELDModule::RemoveSpecialProperty(const VELDStackedString<40>& elementName, const char* suffix)
{
    VELDPropertyImplementation* property = FindProperty(Suffixed(elementName, suffix));
    if (!property) return;
    RemoveProperty(*property);
    --m_nbSpecialProperties;
}

VELDPropertyImplementation* VELDModule::FindProperty(const char* fullName)
{
    VELDMutexGuard guard(m_structureLock);
    for (VELDBasicListItem* it = m_properties.First(); it; it = it->successor)
        if (At<VELDPropertyImplementation>(it).m_name == fullName) return &At<VELDPropertyImplementation>(it);
    return nullptr;
}

void VELDModule::ForgetSymbol(const char* fullName)
{
    VELDPrivate::UnregisterSymbol(fullName);
    VELDMutexGuard guard(m_structureLock);
    for (VELDBasicListItem* it = m_symbols.First(); it; it = it->successor)
        if (VELDList<VELDStackedString<40>>::Value(it) == fullName) {
            m_symbols.Remove(it);
            return;
        }
}

void VELDModule::RemoveInput(VELDInput& input)
{
    VELDInputImplementation& in = static_cast<VELDInputImplementation&>(input);
    const VELDStackedString<40> name = in.name;
    UnderConfiguration("Removing an input", [&] {
        if (VELDOutput* output = in.ConnectedOutput()) VELD::Detach(*output, in);
        RemoveSpecialProperty(name, ".subsampling");
        RemoveSpecialProperty(name, ".readerType");
        ForgetSymbol(name);
        VELDPrivate::InputRemoved(name);
        RemoveInputX(in);
    });
}

void VELDModule::RemoveOutput(VELDOutput& output)
{
    VELDOutputImplementation& out = static_cast<VELDOutputImplementation&>(output);
    const VELDStackedString<40> name = out.name;
    UnderConfiguration("Removing an output", [&] {
        // Every connected input is on the output's list of readers to call.
        std::vector<VELDInput*> readers;
        {
            VELDMutexGuard guard(out.mutex);
            for (VELDBasicListItem* it = out.sequentialInputs.First(); it; it = it->successor)
                readers.push_back(VELDList<VELDSequentialReader>::Value(it).input);
        }
        for (VELDInput* reader : readers) VELD::Detach(out, *reader);
        RemoveSpecialProperty(name, ".subsampling");
        RemoveSpecialProperty(name, ".fifosize");
        RemoveSpecialProperty(name, ".periodic");
        ForgetSymbol(name);
        VELDPrivate::OutputRemoved(name);
        RemoveOutputX(out);
    });
}

void VELDModule::RemoveProperty(VELDProperty& property)
{
    ForgetSymbol(property.Name());
    RemovePropertyX(property);
}

void VELDModule::RemoveAction(VELDAction& action)
{
    ForgetSymbol(action.Name());
    RemoveActionX(action);
}

void VELDModule::RemoveInputX(VELDInput& input)
{
    VELDMutexGuard guard(m_structureLock);
    if (m_currentInput == &input) m_currentInput = nullptr;
    UnlinkAndDestroy(m_inputs, static_cast<VELDInputImplementation*>(&input), m_inputCursor);
}

void VELDModule::RemoveOutputX(VELDOutput& output)
{
    VELDMutexGuard guard(m_structureLock);
    UnlinkAndDestroy(m_outputs, static_cast<VELDOutputImplementation*>(&output), m_outputCursor);
}

void VELDModule::RemovePropertyX(VELDProperty& property)
{
    VELDMutexGuard guard(m_structureLock);
    VELDPropertyImplementation* p = static_cast<VELDPropertyImplementation*>(&property);
    if (m_builtInPropertiesEnd == m_properties.Find(p)) m_builtInPropertiesEnd = m_builtInPropertiesEnd->predecessor;
    UnlinkAndDestroy(m_properties, p, m_propertyCursor);
}

void VELDModule::RemoveActionX(VELDAction& action)
{
    VELDMutexGuard guard(m_structureLock);
    UnlinkAndDestroy(m_actions, static_cast<VELDActionImplementation*>(&action), m_actionCursor);
}

void VELDModule::RemoveUndeclared()
{
    std::vector<VELDInputImplementation*> inputs;
    std::vector<VELDOutputImplementation*> outputs;
    std::vector<VELDPropertyImplementation*> properties;
    std::vector<VELDActionImplementation*> actions;
    {
        VELDMutexGuard guard(m_structureLock);
        inputs = Snapshot(m_inputs, m_inputCursor);
        outputs = Snapshot(m_outputs, m_outputCursor);
        for (VELDPropertyImplementation* p : Snapshot(m_properties, m_propertyCursor))
            if (!p->m_special) properties.push_back(p);
        actions = Snapshot(m_actions, m_actionCursor);
        m_inputCursor = m_outputCursor = m_propertyCursor = m_actionCursor = nullptr;
    }
    for (VELDInputImplementation* e : inputs) RemoveInput(*e);
    for (VELDOutputImplementation* e : outputs) RemoveOutput(*e);
    for (VELDPropertyImplementation* e : properties) RemoveProperty(*e);
    for (VELDActionImplementation* e : actions) RemoveAction(*e);
}

// ---------------------------------------------------------------------------
// Look-ups

void VELDModule::UnknownElement(const char* what, const char* name)
{
    VELDString text("Trying to access unknown ");
    text += what;
    text += " ";
    text += name;
    text += " of module ";
    text += Name();
    Error(text, 1, ErrorGeneric);
    throw VELD::ErrorException;
}

void VELDModule::UnknownElement(const char* what, int index)
{
    VELDStreamedString text("Trying to access unknown ");
    text << what << " #" << index << " of module " << Name();
    Error(text, 1, ErrorGeneric);
    throw VELD::ErrorException;
}

#define VELD_MODULE_LOOKUPS(Kind, What, Interface, Implementation, List)              \
    Interface& VELDModule::Kind(const char* shortName)                                 \
    {                                                                                   \
        Implementation* element;                                                        \
        {                                                                               \
            VELDMutexGuard guard(m_structureLock);                                      \
            element = FindByFullName(List, FullName(shortName));                                 \
        }                                                                               \
        if (!element) UnknownElement(What, shortName);                                  \
        return *element;                                                                \
    }                                                                                   \
    Interface& VELDModule::Kind(int index)                                              \
    {                                                                                   \
        Implementation* element;                                                        \
        {                                                                               \
            VELDMutexGuard guard(m_structureLock);                                      \
            element = FindByIndex(List, index);                                         \
        }                                                                               \
        if (!element) UnknownElement(What, index);                                      \
        return *element;                                                                \
    }                                                                                   \
    bool VELDModule::Has##Kind(const char* shortName)                                   \
    {                                                                                   \
        VELDMutexGuard guard(m_structureLock);                                          \
        return FindByFullName(List, FullName(shortName)) != nullptr;                             \
    }

VELD_MODULE_LOOKUPS(Input, "input", VELDInput, VELDInputImplementation, m_inputs)
VELD_MODULE_LOOKUPS(Output, "output", VELDOutput, VELDOutputImplementation, m_outputs)
VELD_MODULE_LOOKUPS(Property, "property", VELDProperty, VELDPropertyImplementation, m_properties)
VELD_MODULE_LOOKUPS(Action, "action", VELDAction, VELDActionImplementation, m_actions)

#undef VELD_MODULE_LOOKUPS

int VELDModule::NbInputs()
{
    VELDMutexGuard guard(m_structureLock);
    return m_inputs.Length();
}

int VELDModule::NbOutputs()
{
    VELDMutexGuard guard(m_structureLock);
    return m_outputs.Length();
}

int VELDModule::NbProperties()
{
    VELDMutexGuard guard(m_structureLock);
    return m_properties.Length();
}

int VELDModule::NbActions()
{
    VELDMutexGuard guard(m_structureLock);
    return m_actions.Length();
}

// ---------------------------------------------------------------------------
// Virtual operations

void VELDModule::Rename(const char* oldName, const char* newName)
{
    {
        VELDMutexGuard guard(m_structureLock);
        for (VELDBasicListItem* it = m_inputs.First(); it; it = it->successor)
            At<VELDInputImplementation>(it).Rename(oldName, newName);
        for (VELDBasicListItem* it = m_outputs.First(); it; it = it->successor)
            At<VELDOutputImplementation>(it).Rename(oldName, newName);
        for (VELDBasicListItem* it = m_properties.First(); it; it = it->successor)
            At<VELDPropertyImplementation>(it).Rename(oldName, newName);
        for (VELDBasicListItem* it = m_actions.First(); it; it = it->successor)
            At<VELDActionImplementation>(it).Rename(oldName, newName);
        for (VELDBasicListItem* it = m_symbols.First(); it; it = it->successor) {
            VELDStackedString<40>& symbol = VELDList<VELDStackedString<40>>::Value(it);
            if (symbol == oldName)
                symbol = newName;
            else
                VELD::RenameModulePart(symbol, oldName, newName);
        }
        VELDModuleBase::Rename(oldName, newName);
    }
    if (VELDBaseClock* clock = dynamic_cast<VELDBaseClock*>(this)) clock->RenameClock(Name());
}

const char* VELDModule::Kind() { return "module"; }

void VELDModule::SequentialCore(VELDInput*) {}

void VELDModule::Error(const char* text, int verbosity, ErrorCode code)
{
    {
        VELDMutexGuard guard(m_structureLock);
        m_lastErrorCode = code;
        m_lastErrorText = text;
    }
    m_state |= VELD::ErrorState;
    TellState();
    Report(text, VELD::Error, verbosity);
    throw VELD::ErrorException;
}

void VELDModule::Report(const char* text, int level, int verbosity)
{
    VELDString message(Kind());
    message += " ";
    if (Name()) message += Name();
    message += ": ";
    if (text) message += text;
    VELDPrivate::Report(message, level, verbosity, false);
}

// ---------------------------------------------------------------------------
// Performance figures

void VELDModule::ResizePeriodRing(VELDInt64 size)
{
    if (size < 1) size = 1;
    if (size > 1 << 20) size = 1 << 20;
    const int window = static_cast<int>(size);
    if (window > m_periods.Allocated()) m_periods = VELDArray<long>(VELDArray<long>::compute_array_size(window));
    for (int i = 0; i < m_periods.Allocated(); ++i) m_periods(i) = -1;
    m_periodValid = window;
    m_periodHead = 0;
    m_periodCount = 0;
    m_periodSum = 0;
    m_minPeriod = m_maxPeriod = 0;
}

void VELDModule::RescanExtremes()
{
    const int mask = m_periods.Allocated() - 1;
    m_minPeriod = m_maxPeriod = m_periods[m_periodHead & mask];
    for (int k = 1; k < m_periodCount; ++k) {
        const long period = m_periods[(m_periodHead + k) & mask];
        if (period < m_minPeriod) m_minPeriod = period;
        if (period > m_maxPeriod) m_maxPeriod = period;
    }
}

void VELDModule::ResetPerformanceFigures()
{
    m_lastPeriodTime = -1;
    m_nbMeasuredPeriods = 0;
    m_periodHead = m_periodCount = 0;
    m_periodSum = 0;
    m_minPeriod = m_maxPeriod = 0;
    for (VELDProperty* figure : {counter, averagePeriod, minPeriod, maxPeriod})
        if (figure) DirectSet(*figure, VELDInt64(0));
}

void VELDModule::PerformanceMonitoring()
{
    if (!counter) return;
    DirectSet(*counter, counter->IntegerValue() + 1);
    const VELDTimestamp now = VELD::CurrentTime(true, true);
    if (nbPeriods->PropertyChanged()) {
        ResizePeriodRing(nbPeriods->IntegerValue());
        nbPeriods->AcknowledgePropertyChanged();
    } else if (m_lastPeriodTime >= 0) {
        const long period = now - m_lastPeriodTime;
        const int mask = m_periods.Allocated() - 1;
        bool rescan = false;
        if (m_periodCount == m_periodValid) {
            const long dropped = m_periods[m_periodHead & mask];
            m_periodSum -= dropped;
            m_periodHead = (m_periodHead + 1) & mask;
            --m_periodCount;
            rescan = dropped == m_minPeriod || dropped == m_maxPeriod;
        }
        m_periods[(m_periodHead + m_periodCount) & mask] = period;
        ++m_periodCount;
        m_periodSum += period;
        ++m_nbMeasuredPeriods;
        if (m_periodCount == 1 || rescan) {
            RescanExtremes();
        } else {
            if (period < m_minPeriod) m_minPeriod = period;
            if (period > m_maxPeriod) m_maxPeriod = period;
        }
        DirectSet(*averagePeriod, VELDInt64(m_periodSum / m_periodCount));
        DirectSet(*minPeriod, VELDInt64(m_minPeriod));
        DirectSet(*maxPeriod, VELDInt64(m_maxPeriod));
    }
    m_lastPeriodTime = now;
}

// ---------------------------------------------------------------------------
// Life

void VELDModule::TellState() { VELDPrivate::ModuleStateChanged(Name(), m_state.load()); }

void VELDModule::Start()
{
    {
        VELDMutexGuard guard(m_structureLock);
        m_state = (m_state.load() & ~(7 | VELD::ErrorState)) | VELD::LivingState;
        m_dieEvent.Reset();
        m_allDeadEvent.Reset();
    }
    TellState();
}

void VELDModule::Die()
{
    m_state |= VELD::DyingState;
    m_dieEvent.Set();
    TellState();
}

void VELDModule::OneMoreLife()
{
    VELDMutexGuard guard(m_structureLock);
    ++m_nbLives;
}

void VELDModule::LoseOneLife()
{
    bool last;
    {
        VELDMutexGuard guard(m_structureLock);
        last = --m_nbLives == 0;
    }
    if (last) m_allDeadEvent.Set();
}

VELDDelay VELDModule::ShutdownTimeout()
{
    bool ok = false;
    const VELDInt64 value = VELD::GetIntegerProperty("Engine.shutdownTimeout", &ok);
    return ok && value >= 0 ? static_cast<VELDDelay>(value) : 10000000;
}

bool VELDModule::Wait4Death()
{
    {
        VELDMutexGuard guard(m_structureLock);
        if (m_nbLives <= 0) return true;
    }
    const VELDDelay timeout = ShutdownTimeout();
    if (m_allDeadEvent.Wait(timeout) == 0) return true;
    VELDStreamedString text("Some threads are still running after ");
    if (timeout < 1000000)
        text << timeout << " microsecond(s)";
    else
        text << timeout / 1000000 << " second(s)";
    text << ". The model must be bugged. If this is considered as normal however, consider increase the value of the "
            "Engine.shutdownTimeout property. I destroy the component anyway. This might result in a system crash.";
    Report(text, VELD::Warning, 2);
    return false;
}

void VELDModule::CreateThread(VELDThreadFunction function)
{
    StartThread(VELDPrivate::ModuleThread, function, "Failed to create module thread");
}

void VELDModule::AddThread(VELDThread* thread)
{
    VELDMutexGuard guard(m_structureLock);
    m_threads.Append(thread);
}

void VELDModule::RemoveThread(VELDThread* thread)
{
    VELDMutexGuard guard(m_structureLock);
    m_threads.RemoveValue(thread);
}

int VELDModule::NbThreads()
{
    VELDMutexGuard guard(m_structureLock);
    return m_threads.Length();
}

// ---------------------------------------------------------------------------
// Waits and writing: the runtime's, with this module's context

bool VELDModule::Wait4Event(VELDEvent* event, long timeout) { return VELDModuleWaits::Wait4Event(m_context, event, timeout); }
int VELDModule::Wait4Events(int n, VELDEvent** events, long timeout, bool addDeathEvent) { return VELDModuleWaits::Wait4Events(m_context, n, events, timeout, addDeathEvent); }
bool VELDModule::MsgWait4Event(VELDEvent* event, long timeout) { return VELDModuleWaits::MsgWait4Event(m_context, event, timeout); }
int VELDModule::MsgWait4Events(int n, VELDEvent** events, long timeout) { return VELDModuleWaits::MsgWait4Events(m_context, n, events, timeout); }
bool VELDModule::Rest(long delay, VELDEvent* abortEvent) { return VELDModuleWaits::Rest(m_context, delay, abortEvent); }
bool VELDModule::Wait(long timestamp, VELDEvent* abortEvent) { return VELDModuleWaits::Wait(m_context, timestamp, abortEvent); }
int VELDModule::WaitForTimestamp(long t, VELDEvent* abortEvent, bool* changed) { return VELDModuleWaits::WaitForTimestamp(m_context, t, abortEvent, changed); }
int VELDModule::WaitForTimestamp(long t, int n, VELDEvent** events, int* cancelled, bool* changed) { return VELDModuleWaits::WaitForTimestamp(m_context, t, n, events, cancelled, changed); }

VELDIOElt* VELDModule::StartWriting(VELDOutput& output) { return VELDOutputWriting::StartWriting(m_context, output); }
VELDIOElt* VELDModule::StartWriting(VELDOutput& output, long timestamp) { return VELDOutputWriting::StartWriting(m_context, output, timestamp); }
void VELDModule::StopWriting(VELDIOElt* element, bool discard) { VELDOutputWriting::StopWriting(m_context, element, discard); }
bool VELDModule::IsFIFOEmpty(VELDOutput& output) { return VELDOutputWriting::IsFIFOEmpty(output); }
bool VELDModule::IsFIFOFull(VELDOutput& output) { return VELDOutputWriting::IsFIFOFull(output); }
void VELDModule::Wait4Handshake(VELDOutput& output) { VELDOutputWriting::Wait4Handshake(m_context, output); }
