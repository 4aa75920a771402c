#include "veld_component.h"

#include <climits>
#include <exception>
#include <vector>

#include "veld.h"
#include "veld_input_impl.h"
#include "veld_io_monitor_impl.h"
#include "veld_output_impl.h"
#include "veld_private.h"
#include "veld_property_impl.h"
#include "veld_thread.h"

namespace {

typedef void (*DynamicFunction)(VELDComponent*);

// The function that a call of Dynamic on `component` runs now.
DynamicFunction CurrentDynamic(VELDComponent* component)
{
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wpmf-conversions"
    return reinterpret_cast<DynamicFunction>(component->*(&VELDComponent::Dynamic));
#pragma GCC diagnostic pop
}

VELDComponent& Owner(VELDProperty& property) { return static_cast<VELDComponent&>(*property.Owner()); }

void SetThreadedProperty(VELDProperty& property) { Owner(property).m_threaded = property.BoolValue(); }

void SetPriorityProperty(VELDProperty& property)
{
    VELDComponent& component = Owner(property);
    const VELDInt64 priority = property.IntegerValue();
    if (static_cast<VELDUInt32>(priority) > 255) {
        static_cast<VELDPropertyImplementation&>(property).StoreInteger(128);
        component.Error("Invalid priority value. Component's priority should be set between 0 and 255.", 1,
                        VELDModule::ErrorGeneric);
        return;
    }
    VELDMutexGuard guard(component.m_structureLock);
    for (VELDBasicListItem* it = component.m_threads.First(); it; it = it->successor)
        VELDList<VELDThread*>::Value(it)->SetPriority(static_cast<int>(priority));
}

void SetAutoStartProperty(VELDProperty& property)
{
    VELDComponent& component = Owner(property);
    if (property.BoolValue())
        component.m_state |= VELD::StartAutomaticallyState;
    else
        component.m_state &= ~VELD::StartAutomaticallyState;
    component.TellState();
}

VELDPropertyDefinition BuiltIn(const char* name, VELDPropertyValue* value, bool modifiableAfterStart, bool readOnly)
{
    return VELDPropertyDefinition(name, value, nullptr, false, modifiableAfterStart, readOnly, true);
}

VELDPropertyValue* StringValue(const char* text)
{
    VELDPropertyValue* value = new VELDPropertyValue(VELDInt64(0));
    value->type = VELD::StringProperty;
    value->value.s = new VELDString(text);
    return value;
}

VELDInputImplementation& In(VELDInput& input) { return static_cast<VELDInputImplementation&>(input); }

// Every input connected to `output`: the connections are recorded on it.
std::vector<VELDInputImplementation*> ConnectedInputs(VELDOutputImplementation& output)
{
    std::vector<VELDInputImplementation*> inputs;
    VELDMutexGuard guard(output.mutex);
    for (VELDBasicListItem* it = output.sequentialInputs.First(); it; it = it->successor)
        inputs.push_back(static_cast<VELDInputImplementation*>(VELDList<VELDSequentialReader>::Value(it).input));
    return inputs;
}

// Empties a FIFO whose readers have all stepped aside: every slot free,
// nobody waiting.
void EmptyFifo(VELDIOMonitorImplementation& fifo)
{
    VELDMutexGuard guard(fifo.mutex);
    for (VELDBasicListItem* it = fifo.ring.First(); it; it = it->successor) {
        auto& slot = VELDList<VELDIOMonitorImplementation::Slot>::Value(it);
        slot.state = VELDFastIOSlot::Free;
        slot.readMask = 0;
        slot.readingMask = 0;
    }
    for (int r = 0; r < VELDCondition2::kMaxReaders; ++r) fifo.condition->waiting[r] = false;
    fifo.allReadEvent.Reset();
    fifo.slotReleasedEvent.Reset();
    fifo.subsamplingCountdown = fifo.subsamplingPeriod;
}

template <class E>
VELDBasicListItem* Skip(const VELDList<E*>& list, VELDBasicListItem* from, VELDUInt32 count)
{
    VELDBasicListItem* it = from;
    for (VELDUInt32 i = 0; it && i < count; ++i) it = it->successor;
    return it;
}

}  // namespace

// ---------------------------------------------------------------------------
// Construction

VELDComponent::VELDComponent(const char* name, VELDComponentDefinition& definition)
    : VELDModule(name, true, true), m_definition(&definition), m_birthEvent(false, nullptr), m_inDynamic(false),
      m_sequentialDead(true), m_location{-1, -1}, m_baseDynamic(CurrentDynamic(this))
{
    if (!TakeInstance(definition)) {
        VELDString text("Can't create component ");
        text += name;
        text += ": its model ";
        text += definition.name;
        text += " allows no more instances.";
        VELDPrivate::KernelError(text, 1);
    }
    m_state = (m_state.load() & ~5) | VELD::DeadState | VELD::StartAutomaticallyState;
    m_threaded = definition.threaded;
    m_symbols.Append(VELDStackedString<40>(name));

    NewProperty(BuiltIn("threaded", new VELDPropertyValue(definition.threaded), false, false))
        .SetSetCallback(SetThreadedProperty);
    const VELDInt64 priority = definition.priority ? definition.priority : 128;
    NewProperty(BuiltIn("priority", new VELDPropertyValue(priority), true, false)).SetSetCallback(SetPriorityProperty);
    NewProperty(BuiltIn("autoStart", new VELDPropertyValue(true), true, false)).SetSetCallback(SetAutoStartProperty);
    NewProperty(BuiltIn("componentModelVersion", StringValue(definition.version), false, true));
    NewProperty(BuiltIn("primaryThreadID", new VELDPropertyValue(VELDInt64(-1)), false, true));
    m_builtInPropertiesEnd = m_properties.Last();
    m_actionTable = definition.actions;
    m_actionTableSize = static_cast<int>(definition.nbActions);

    for (VELDUInt32 i = 0; i < definition.nbProperties; ++i) NewProperty(definition.properties[i]);
    for (VELDUInt32 i = 0; i < definition.nbInputs; ++i) NewInput(definition.inputs[i]);
    for (VELDUInt32 i = 0; i < definition.nbOutputs; ++i) NewOutput(definition.outputs[i]);
    for (VELDUInt32 i = 0; i < definition.nbActions; ++i) NewAction(definition.actions[i]);
}

VELDComponent::~VELDComponent()
{
    GiveInstanceBack(*m_definition);
    if (!(m_state.load() & VELD::DeadState)) {
        VELDStreamedString text;
        text << "The destructor of component " << Name() << " was called though " << Name() << " is still alive.";
        VELDPrivate::Report(text, VELD::Error, 1, true);
    }
}

bool VELDComponent::TakeInstance(VELDComponentDefinition& definition)
{
    VELDUInt32 left = __atomic_load_n(&definition.maxNumberOfInstances, __ATOMIC_ACQUIRE);
    for (;;) {
        if (left == 0) return true;  // no limit
        if (left == UINT32_MAX) return false;  // none left
        const VELDUInt32 next = left == 1 ? UINT32_MAX : left - 1;
        if (__atomic_compare_exchange_n(&definition.maxNumberOfInstances, &left, next, false, __ATOMIC_ACQ_REL,
                                        __ATOMIC_ACQUIRE))
            return true;
    }
}

void VELDComponent::GiveInstanceBack(VELDComponentDefinition& definition)
{
    VELDUInt32 left = __atomic_load_n(&definition.maxNumberOfInstances, __ATOMIC_ACQUIRE);
    for (;;) {
        if (left == 0) return;
        const VELDUInt32 next = left == UINT32_MAX ? 1 : left + 1;
        if (__atomic_compare_exchange_n(&definition.maxNumberOfInstances, &left, next, false, __ATOMIC_ACQ_REL,
                                        __ATOMIC_ACQUIRE))
            return;
    }
}

// ---------------------------------------------------------------------------
// Virtual operations

const char* VELDComponent::Kind() { return "component"; }

void VELDComponent::Set(VELDProperty& property, bool value)
{
    VELDModule::Set(property, value);
    CallDynamic();
}

void VELDComponent::Set(VELDProperty& property, VELDInt64 value)
{
    VELDModule::Set(property, value);
    CallDynamic();
}

void VELDComponent::Set(VELDProperty& property, VELDFloat64 value)
{
    VELDModule::Set(property, value);
    CallDynamic();
}

void VELDComponent::Set(VELDProperty& property, const VELDString& value)
{
    VELDModule::Set(property, value);
    CallDynamic();
}

void VELDComponent::Set(VELDProperty& property, const VELDEnumStruct& value)
{
    VELDModule::Set(property, value);
    CallDynamic();
}

void VELDComponent::Dynamic() {}
void VELDComponent::Birth() {}
void VELDComponent::Banzai() {}
void VELDComponent::Death() {}

void VELDComponent::FreeBuffers()
{
    VELDMutexGuard guard(m_structureLock);
    for (VELDBasicListItem* it = m_outputs.First(); it; it = it->successor)
        VELDList<VELDOutputImplementation*>::Value(it)->FreeBuffer();
}

VELDPoint VELDComponent::GetLocation() { return m_location; }
void VELDComponent::SetLocation(const VELDPoint& location) { m_location = location; }

// ---------------------------------------------------------------------------
// Re-definition

void VELDComponent::SetCursors()
{
    VELDMutexGuard guard(m_structureLock);
    m_inputCursor = Skip(m_inputs, m_inputs.First(), m_definition->nbInputs);
    m_outputCursor = Skip(m_outputs, m_outputs.First(), m_definition->nbOutputs);
    m_actionCursor = Skip(m_actions, m_actions.First(), m_definition->nbActions);
    VELDBasicListItem* it = m_builtInPropertiesEnd ? m_builtInPropertiesEnd->successor : m_properties.First();
    for (VELDUInt32 skipped = 0; it && skipped < m_definition->nbProperties; it = it->successor)
        if (!VELDList<VELDPropertyImplementation*>::Value(it)->m_special) ++skipped;
    m_propertyCursor = it;
}

void VELDComponent::ResetDynamic()
{
    SetCursors();
    m_state &= ~VELD::ErrorState;
}

void VELDComponent::CallDynamic()
{
    VELDPrivate::LockConfiguration("Calling Dynamic");
    m_startLock.Lock();
    try {
        if (!(m_state.load() & VELD::LivingState) && !m_inDynamic.load()) {
            m_inDynamic = true;
            SetCursors();
            m_state &= ~VELD::ErrorState;
            if (CurrentDynamic(this) != m_baseDynamic) {
                try {
                    Dynamic();
                } catch (...) {
                    m_state |= VELD::ErrorState;
                }
            } else {
                VELDMutexGuard guard(m_structureLock);
                m_inputCursor = m_outputCursor = m_propertyCursor = m_actionCursor = nullptr;
            }
            // What this Dynamic did not declare again goes.
            RemoveUndeclared();
            m_inDynamic = false;
        }
    } catch (...) {
        m_inDynamic = false;
        m_startLock.Release();
        VELDPrivate::UnlockConfiguration();
        throw;
    }
    m_startLock.Release();
    TellState();
    VELDPrivate::UnlockConfiguration();
}

// ---------------------------------------------------------------------------
// Declaring elements

namespace {

// Entry `index` of a table that ends with a record of null name, or that
// record when the table ends before.
template <class Definition>
const Definition& Entry(const Definition* table, int index)
{
    static const Definition none{};
    if (!table || index < 0) return none;
    for (int i = 0; i < index; ++i)
        if (!table[i].name) return table[i];
    return table[index];
}

template <class Definition>
const Definition& Entry(const Definition* table, const char* model)
{
    static const Definition none{};
    if (!table) return none;
    const Definition* entry = table;
    while (entry->name && VELD::Strcmp(entry->name, model) != 0) ++entry;
    return *entry;
}

}  // namespace

VELDInput& VELDComponent::NewInput(const VELDInputDefinition& definition, const char* name)
{
    return NewInputChecked(definition, name, true);
}

VELDInput& VELDComponent::NewInput(int index, const char* name) { return NewInput(Entry(m_definition->inputs, index), name); }
VELDInput& VELDComponent::NewInput(const char* model, const char* name) { return NewInput(Entry(m_definition->inputs, model), name); }

VELDOutput& VELDComponent::NewOutput(const VELDOutputDefinition& definition, const char* name)
{
    return NewOutputChecked(definition, name, true, true);
}

VELDOutput& VELDComponent::NewOutput(int index, const char* name) { return NewOutput(Entry(m_definition->outputs, index), name); }
VELDOutput& VELDComponent::NewOutput(const char* model, const char* name) { return NewOutput(Entry(m_definition->outputs, model), name); }
VELDProperty& VELDComponent::NewProperty(int index, const char* name) { return NewProperty(Entry(m_definition->properties, index), name); }
VELDProperty& VELDComponent::NewProperty(const char* model, const char* name) { return NewProperty(Entry(m_definition->properties, model), name); }
VELDAction& VELDComponent::NewAction(int index, const char* name) { return NewAction(Entry(m_definition->actions, index), name); }
VELDAction& VELDComponent::NewAction(const char* model, const char* name) { return NewAction(Entry(m_definition->actions, model), name); }

// ---------------------------------------------------------------------------
// Start

void VELDComponent::Start()
{
    {
        VELDMutexGuard guard(m_structureLock);
        if (m_state.load() & VELD::LivingState) {
            guard.unlock_mtx();
            TellState();
            return;
        }
        m_state = (m_state.load() & ~VELD::ErrorState) | VELD::LivingState;
    }
    m_startLock.Lock();

    for (VELDBasicListItem* it = m_builtInPropertiesEnd ? m_builtInPropertiesEnd->successor : m_properties.First(); it;
         it = it->successor) {
        VELDPropertyImplementation* property = VELDList<VELDPropertyImplementation*>::Value(it);
        if (!property->m_definition.needs2BeInitialized) continue;
        m_state = (m_state.load() & ~VELD::LivingState) | VELD::ErrorState;
        TellState();
        m_startLock.Release();
        VELDString text("Unable to start component ");
        text += Name();
        text += ". Its property ";
        text += property->ShortName();
        text += " needs to be initialized.";
        VELDPrivate::KernelError(text, 1);
    }

    try {
        // Each output afresh, with its final FIFO size.
        VELDMutexGuard guard(m_structureLock);
        for (VELDBasicListItem* it = m_outputs.First(); it; it = it->successor) {
            VELDOutputImplementation* output = VELDList<VELDOutputImplementation*>::Value(it);
            if (output->bufferSizeItems != 0) output->FreeBuffer();
            output->AllocOutputBuffer(output->definition.size, true);
            output->nbFifoOverflows = 0;
        }
    } catch (...) {
        m_startLock.Release();
        m_state &= ~VELD::LivingState;
        throw;
    }

    ResetPerformanceFigures();
    m_state &= ~VELD::DyingState;
    m_dieEvent.Reset();
    m_state &= ~VELD::DeadState;
    m_allDeadEvent.Reset();

    const VELDUInt32 kind = m_definition->kind;
    if (m_threaded.load() && !(kind & VELD::Threaded)) {
        m_threaded = false;
        Report("Threaded behaviour is not allowed anymore for this component (its threading model may have changed "
               "since last save operation).",
               VELD::Warning, 0);
        DirectSet(Property("threaded"), false);
    }
    if (!m_threaded.load() && !(kind & VELD::Sequential)) {
        m_threaded = true;
        Report("Sequential behaviour is not allowed anymore for this component (its threading model may have "
               "changed since last save operation).",
               VELD::Warning, 0);
        DirectSet(Property("threaded"), true);
    }

    if (m_threaded.load()) {
        if (!VELD::CreateThread(VELDPrivate::ComponentMainThread, this)) {
            m_state = (m_state.load() & ~VELD::LivingState) | VELD::ErrorState;
            TellState();
            m_startLock.Release();
            Error("Failed to start component main thread", 1, ErrorGeneric);
            return;
        }
        bool found = false;
        if (VELD::GetBoolProperty("Engine.sequentialStart", &found) && found) {
            try {
                if (!Wait4Event(m_birthEvent, 3000000))
                    Report("Couldn't start. Birth didn't occur correctly (3s timeout).", VELD::Error, 0);
            } catch (int code) {
                if (code != VELD::ModuleDied) {
                    m_startLock.Release();
                    throw;
                }
                Report("Couldn't start. Birth didn't occur correctly (died at birth).", VELD::Error, 0);
            }
        }
    } else {
        if (HasProperty("primaryThreadID")) DirectSet(Property("primaryThreadID"), VELDInt64(0));
        m_sequentialLock.Lock();
        try {
            m_sequentialDead = false;
            OneMoreLife();
            Birth();
            m_state &= ~VELD::DeadState;
            TellState();
            // What came before the start is read now.
            for (VELDInputImplementation* input : std::vector<VELDInputImplementation*>(
                     [this] {
                         std::vector<VELDInputImplementation*> inputs;
                         VELDMutexGuard guard(m_structureLock);
                         for (VELDBasicListItem* it = m_inputs.First(); it; it = it->successor)
                             inputs.push_back(VELDList<VELDInputImplementation*>::Value(it));
                         return inputs;
                     }())) {
                m_currentInput = input;
                SequentialLoop(input);
            }
        } catch (int code) {
            if (code == VELD::ErrorException) {
                VELDString text(Kind());
                text += " ";
                text += Name();
                text += " (sequential) died due to an error.";
                VELD::ReportWarning(text, 1);
            } else if (code != VELD::ModuleDied) {
                ReportFatal(DescribeThrown(false));
            }
            SequentialDyingSequence();
        } catch (...) {
            ReportFatal(DescribeThrown(false));
            SequentialDyingSequence();
        }
        m_sequentialLock.Release();
    }
    TellState();
    m_startLock.Release();
}

VELDString VELDComponent::DescribeThrown(bool strings)
{
    const char* const tail = " Trying to catch up but the component might crash later.";
    VELDString text;
    try {
        throw;
    } catch (int) {
        text = " : Fatal error : Unhandled integer exception thrown.";
    } catch (const char* thrown) {
        if (strings) {
            text = " : Fatal error : Unhandled string thrown: ";
            text += thrown;
        } else {
            text = " : Fatal error : Unhandled exception thrown.";
        }
    } catch (const std::exception& e) {
        text = " : Fatal error : Unhandled std::exception thrown: ";
        text += e.what();
    } catch (...) {
        text = " : Fatal error : Unhandled exception thrown.";
    }
    text += tail;
    return text;
}

void VELDComponent::ReportFatal(const char* text)
{
    VELDString message(Kind());
    message += " ";
    message += Name();
    message += text;
    VELDPrivate::MessageBox(message, 2, 2, true);
    VELD::ReportError(message, 0);
}

void VELDComponent::CallBanzai()
{
    try {
        Banzai();
    } catch (...) {
        // Dying goes on whatever Banzai thinks of it.
    }
}

void VELDComponent::SequentialDyingSequence()
{
    m_state |= VELD::DyingState;
    m_dieEvent.Set();
    DieInPlace();
    TellState();
}

void VELDComponent::DieInPlace()
{
    m_sequentialDead = true;
    LoseOneLife();
    CallBanzai();
    Wait4Death();
    CallDeath();
    Die4Good();
}

// ---------------------------------------------------------------------------
// The sequential run

void VELDComponent::SequentialLoop(VELDInput* input)
{
    if (!input) return;
    VELDInputImplementation& in = In(*input);
    while (in.DataAvailableInFIFO()) {
        const int rate = in.definition.subsampling;
        if (in.skipCount >= rate - 1) {
            in.skipCount = 0;
        } else if (in.definition.readerType <= VELD::LastOrNextReader) {
            // Consumed unseen: the component sees one element in `rate`.
            StartReading(in);
            StopReading(in);
            ++in.skipCount;
            continue;
        }
        PerformanceMonitoring();
        Core();
        for (int i = 0; i < NbInputs(); ++i) {
            VELDInputImplementation& read = In(Input(i));
            if (read.nbHeld.load()) StopReading(read);
        }
    }
}

void VELDComponent::SequentialCore(VELDInput* input)
{
    m_sequentialLock.Lock();
    if (m_sequentialDead || IsDying()) {
        m_sequentialLock.Release();
        return;
    }
    try {
        m_currentInput = input;
        SequentialLoop(input);
    } catch (int code) {
        if (code == VELD::ModuleDied) {
            // A quiet end.
        } else if (code == VELD::ErrorException) {
            VELDString text(Kind());
            text += " ";
            text += Name();
            text += " (sequential) died due to an error.";
            VELD::ReportWarning(text, 1);
            m_state |= VELD::ErrorState;
            SequentialDyingSequence();
        } else {
            m_state |= VELD::ErrorState;
            m_sequentialLock.Release();
            if (code == VELD::TimeOut) {
                VELDString text("Component ");
                text += Name();
                text += " : Time out (deadlock?) on an input";
                VELDPrivate::KernelError(text, 1);
            }
            throw;
        }
    } catch (...) {
        ReportFatal(DescribeThrown(true));
        m_state |= VELD::ErrorState;
        SequentialDyingSequence();
    }
    m_sequentialLock.Release();
}

// ---------------------------------------------------------------------------
// Stop

void VELDComponent::Shutdown()
{
    Die();
    if (!m_threaded.load()) SequentialDeath();
    const VELDTimestamp start = VELD::GetSystemAccurateTiming();
    while (!(m_state.load() & VELD::DeadState)) {
        if (VELD::GetSystemAccurateTiming() - start > 10000000) {
            VELDStreamedString text;
            text << "Component " << Name() << " refuses to die after 10 seconds. The component model " << ModelName()
                 << " must be bugged.";
            VELDPrivate::Report(text, VELD::Warning, 1, true);
            break;
        }
        VELD::Wait4AWhile();
    }
    StepReadersAside();
    m_state &= ~VELD::DyingState;
    FreeBuffers();
    TellState();
}

void VELDComponent::StepReadersAside()
{
    std::vector<VELDOutputImplementation*> outputs;
    std::vector<VELDInputImplementation*> inputs;
    {
        VELDMutexGuard guard(m_structureLock);
        for (VELDBasicListItem* it = m_outputs.First(); it; it = it->successor)
            outputs.push_back(VELDList<VELDOutputImplementation*>::Value(it));
        for (VELDBasicListItem* it = m_inputs.First(); it; it = it->successor)
            inputs.push_back(VELDList<VELDInputImplementation*>::Value(it));
    }
    for (VELDInputImplementation* input : inputs) input->ResetReadState();
    for (VELDOutputImplementation* output : outputs) {
        // The readers leave the FIFO before it is emptied, and come back to
        // an empty one.
        std::vector<VELDInputImplementation*> readers = ConnectedInputs(*output);
        for (VELDInputImplementation* reader : readers) reader->BeginReconnection();
        EmptyFifo(*output->monitor);
        for (VELDInputImplementation* reader : readers) reader->EndReconnection();
    }
}

void VELDComponent::CleanUp()
{
    std::vector<VELDOutputImplementation*> outputs;
    {
        VELDMutexGuard guard(m_structureLock);
        for (VELDBasicListItem* it = m_inputs.First(); it; it = it->successor)
            VELDList<VELDInputImplementation*>::Value(it)->ResetReadState();
        for (VELDBasicListItem* it = m_outputs.First(); it; it = it->successor)
            outputs.push_back(VELDList<VELDOutputImplementation*>::Value(it));
    }
    for (VELDOutputImplementation* output : outputs) EmptyFifo(*output->monitor);
    m_state &= ~VELD::DyingState;
}

void VELDComponent::SequentialDeath()
{
    if (m_threaded.load()) return;
    if (HasProperty("primaryThreadID")) DirectSet(Property("primaryThreadID"), VELDInt64(-1));
    m_sequentialLock.Lock();
    if (!m_sequentialDead) DieInPlace();
    m_sequentialLock.Release();
}

void VELDComponent::CommitSuicide()
{
    m_state |= VELD::DyingState;
    m_dieEvent.Set();
    TellState();
    if (m_threaded.load()) throw VELD::ModuleDied;
    DieInPlace();
}

void VELDComponent::CallDeath()
{
    auto report = [this](const char* text, int verbosity) {
        VELDString message(Name());
        message += text;
        VELDPrivate::Report(message, VELD::Error, verbosity, true);
    };
    try {
        Death();
    } catch (int code) {
        if (code == VELD::ErrorException)
            report(": VELD::ErrorException thrown from Death(). Trying to catch up. The component might crash later.",
                   0);
        else
            report(": unhandled integer exception thrown from Death(). Trying to catch up. The component might crash "
                   "later.",
                   2);
    } catch (const std::exception& e) {
        VELDString text(": unhandled std::exception thrown from Death() (");
        text += e.what();
        text += "). Trying to catch up. The component might crash later.";
        report(text, 2);
    } catch (...) {
        report(": unhandled exception thrown from Death(). Trying to catch up. The component might crash later.", 2);
    }
}

void VELDComponent::StopOpenReads()
{
    for (int i = 0; i < NbInputs(); ++i) {
        VELDInputImplementation& input = In(Input(i));
        if (!input.nbHeld.load()) continue;
        try {
            StopReading(input);
        } catch (int) {
            // Reported by the FIFO; the read state is forgotten anyway.
            input.ResetReadState();
        }
    }
}

void VELDComponent::Die4Good()
{
    StopOpenReads();
    VELDString text("Component ");
    text += Name();
    text += " is dead.";
    VELDPrivate::Report(text, VELD::Info, 0, true);
    ResetPerformanceFigures();
    m_state = (m_state.load() & ~7) | VELD::DeadState;
    m_birthEvent.Reset();
    TellState();
}

// ---------------------------------------------------------------------------
// Further threads

void VELDComponent::CreateThread(VELDThreadFunction function)
{
    StartThread(VELDPrivate::ComponentThread, function, "Failed to create a component thread that runs a member function");
}

VELDCouple<bool, unsigned long> VELDComponent::CreateThread(VELDThreadFreeFunction function, void* arg)
{
    bool ok = false;
    VELD::GetStringProperty("Engine.version", &ok);
    if (!ok) {
        Error("This component needs to create a component thread that runs a non-member function. Your engine "
              "version does NOT support creating component threads that run non-member functions. Either update "
              "your engine to Veldor >= 4.7.0 or change this component's code to use "
              "VELDComponent::CreateThread(VELDThreadFunction) instead of "
              "VELDComponent::CreateThread(VELDThreadFreeFunction, void*)",
              1, ErrorGeneric);
        return VELDCouple<bool, unsigned long>(false, 0);
    }
    std::atomic<bool> started(false);
    bool success = false;
    unsigned long id = 0;
    VELDFreeThreadStartRecord record{nullptr, 1, &started, &success, &id, this, function, arg};
    if (!VELD::CreateThread(VELDPrivate::ComponentThread, &record)) {
        Error("Failed to create a component thread that runs a non-member function", 1, ErrorGeneric);
        return VELDCouple<bool, unsigned long>(false, 0);
    }
    while (!started.load()) VELD::Wait4AWhile();
    return VELDCouple<bool, unsigned long>(success, id);
}
