// A participant of the graph: a named object that owns inputs, outputs,
// properties and actions, registers their full names with the kernel, keeps a
// state mask, a count of lives and performance figures, and gives model code
// its error, report, wait, read and write paths. VELDComponent adds the
// lifecycle.
//
// The engine and packages reach modules through the position of the virtual
// operations below: never reorder them, never insert one before the last.
//
// Locks, outermost first: the kernel's LockConfiguration, then (for a
// component) m_startLock and m_sequentialLock, then m_structureLock. The
// static property read takes m_propertyLock before m_structureLock.
#ifndef VELD_MODULE_H
#define VELD_MODULE_H

#include <atomic>

#include "veld_action.h"
#include "veld_containers.h"
#include "veld_definitions.h"
#include "veld_event.h"
#include "veld_input.h"
#include "veld_io_elt.h"
#include "veld_module_definition.h"
#include "veld_module_waits.h"
#include "veld_output.h"
#include "veld_property.h"
#include "veld_property_value.h"
#include "veld_string.h"

class VELDAction;
class VELDActionImplementation;
class VELDEnumStruct;
class VELDInput;
class VELDInputImplementation;
class VELDIOElt;
class VELDOutput;
class VELDOutputImplementation;
class VELDProperty;
class VELDPropertyImplementation;
class VELDThread;

class VELDModule;

// The function of a further thread: a member function of the module, or a
// free function with its argument.
typedef void (VELDModule::*VELDThreadFunction)();
typedef void (*VELDThreadFreeFunction)(void* arg);

// What a thread body receives from CreateThread. It lives on the creator's
// stack until the body sets `started`, so the body copies what it needs
// first. The member form starts with the module; the free form starts with a
// null word followed by 1, which no member-function pointer can hold there
// (a virtual function at slot 0 is a destructor).
struct VELDThreadStartRecord {
    VELDModule* module;
    VELDThreadFunction function;
    std::atomic<bool>* started;
};

struct VELDFreeThreadStartRecord {
    void* noModule;  // null
    long form;       // 1
    std::atomic<bool>* started;
    bool* success;
    unsigned long* threadId;
    VELDModule* module;
    VELDThreadFreeFunction function;
    void* arg;
};

class VELDModule : public VELDModuleBase {
public:
    enum ErrorCode { ErrorGeneric = 0 };

    // With `monitorPerformance` the module has the built-in properties
    // counter, nbPeriods, averagePeriod, minPeriod, maxPeriod,
    // contextSwitches and CPULoad; with `hasProcessor` the property
    // processor (-1: any processor).
    VELDModule(const char* name, bool monitorPerformance, bool hasProcessor);
    // Unregisters and destroys every element the module owns.
    ~VELDModule() override;

    // ---- virtual operations, in their fixed order ----
    // Renames every element, then the module itself (and its clock, when the
    // module is one).
    void Rename(const char* oldName, const char* newName) override;
    // "module"; "component" for a component.
    virtual const char* Kind();
    // Runs the module on the writer's thread; nothing for a plain module.
    virtual void SequentialCore(VELDInput* input);
    // Marks the module in error, reports at level 2 and throws
    // VELD::ErrorException. An override may return; callers then give up
    // quietly.
    virtual void Error(const char* text, int verbosity, ErrorCode code);
    // "<kind> <name>: <text>" to the kernel's report.
    virtual void Report(const char* text, int level, int verbosity);
    // Counts one more Core and measures the period; called before each Core.
    virtual void PerformanceMonitoring();
    // Reads through the get callback. A property of another type is an Error.
    virtual void Get(VELDProperty& property, bool& value);
    virtual void Get(VELDProperty& property, VELDInt64& value);
    virtual void Get(VELDProperty& property, VELDFloat64& value);
    virtual void Get(VELDProperty& property, VELDString& value);
    virtual void Get(VELDProperty& property, VELDEnumStruct& value);
    // The checked writes: refused (through Error) when the flags or the type
    // forbid it; then the value is stored, needs2BeInitialized cleared, the
    // set callback run and the change signalled.
    virtual void Set(VELDProperty& property, bool value);
    virtual void Set(VELDProperty& property, VELDInt64 value);
    virtual void Set(VELDProperty& property, VELDFloat64 value);
    virtual void Set(VELDProperty& property, const VELDString& value);
    virtual void Set(VELDProperty& property, const VELDEnumStruct& value);

    // ---- properties ----
    // Items "a|b|c" and a selection, written as given.
    void Set(VELDProperty& property, const VELDString& items, int selected);
    // The write of the module's own code: no flag is tested, no callback
    // runs and needs2BeInitialized stays.
    void DirectSet(VELDProperty& property, bool value);
    void DirectSet(VELDProperty& property, VELDInt64 value);
    void DirectSet(VELDProperty& property, VELDFloat64 value);
    void DirectSet(VELDProperty& property, const VELDString& value);
    void DirectSet(VELDProperty& property, const VELDEnumStruct& value);
    void DirectSet(VELDProperty& property, const VELDString& items, int selected);
    // The read for another thread or module: m_propertyLock, then
    // m_structureLock, then the owner's Get.
    static void Get(VELDModule& owner, VELDProperty& property, bool& value);
    static void Get(VELDModule& owner, VELDProperty& property, VELDInt64& value);
    static void Get(VELDModule& owner, VELDProperty& property, VELDFloat64& value);
    static void Get(VELDModule& owner, VELDProperty& property, VELDString& value);
    static void Get(VELDModule& owner, VELDProperty& property, VELDEnumStruct& value);
    // By short name, then Get.
    VELDProperty& GetProperty(const char* shortName) { return Property(shortName); }
    bool GetBoolProperty(const char* shortName);
    VELDInt64 GetIntegerProperty(const char* shortName);
    VELDFloat64 GetFloatProperty(const char* shortName);
    VELDString GetStringProperty(const char* shortName);
    VELDEnumStruct GetEnumProperty(const char* shortName);
    // The set callbacks of the special properties: each finds its input or
    // output from the property's full name.
    static void SetInputSubsamplingProperty(VELDProperty& property);
    static void SetInputReaderTypeProperty(VELDProperty& property);
    static void SetOutputSubsamplingProperty(VELDProperty& property);
    static void SetOutputFifoSizeProperty(VELDProperty& property);
    static void SetOutputPeriodicProperty(VELDProperty& property);

    // ---- elements ----
    // Declares an element; `shortName` null takes the definition's name.
    // During Dynamic an element declared again is the same object, with its
    // value and connections.
    VELDInput& NewInput(const VELDInputDefinition& definition, const char* shortName = nullptr);
    VELDOutput& NewOutput(const VELDOutputDefinition& definition, const char* shortName = nullptr);
    VELDProperty& NewProperty(const VELDPropertyDefinition& definition, const char* shortName = nullptr);
    VELDAction& NewAction(const VELDActionDefinition& definition, const char* shortName = nullptr);
    // As NewProperty, with a ready full name and without the name check.
    VELDProperty& NewSpecialProperty(const VELDPropertyDefinition& definition, const char* fullName);
    // The list step of New...: the element of that full name at the cursor
    // or after it (those between are removed), or a new one in its place.
    VELDInputImplementation* NewInputX(const VELDStackedString<40>& fullName, const char* definitionName, bool& isNew,
                                       int& index);
    VELDOutputImplementation* NewOutputX(const VELDStackedString<40>& fullName, const char* definitionName,
                                         bool& isNew, int& index);
    VELDOutputImplementation* NewOutputX(const VELDStackedString<40>& fullName,
                                         const VELDOutputDefinition& definition, bool& isNew, int& index);
    VELDPropertyImplementation* NewPropertyX(const VELDStackedString<40>& fullName, const char* definitionName,
                                             bool& isNew);
    VELDActionImplementation* NewActionX(const VELDStackedString<40>& fullName, const char* definitionName,
                                         bool& isNew);
    // Removal: the engine forgets the element, connections are detached,
    // the object is destroyed. The ...X forms only unlink and destroy.
    void RemoveInput(VELDInput& input);
    void RemoveOutput(VELDOutput& output);
    void RemoveProperty(VELDProperty& property);
    void RemoveAction(VELDAction& action);
    void RemoveInputX(VELDInput& input);
    void RemoveOutputX(VELDOutput& output);
    void RemovePropertyX(VELDProperty& property);
    void RemoveActionX(VELDAction& action);

    // Look-ups by short name (the part after "<module>.") and by index; an
    // unknown one is an Error: "Trying to access unknown input <name> of
    // module <module>".
    VELDInput& Input(const char* shortName);
    VELDInput& Input(int index);
    VELDOutput& Output(const char* shortName);
    VELDOutput& Output(int index);
    VELDProperty& Property(const char* shortName);
    VELDProperty& Property(int index);
    VELDAction& Action(const char* shortName);
    VELDAction& Action(int index);
    bool HasInput(const char* shortName);
    bool HasOutput(const char* shortName);
    bool HasProperty(const char* shortName);
    bool HasAction(const char* shortName);
    int NbInputs();
    int NbOutputs();
    int NbProperties();
    int NbActions();

    // ---- reports ----
    void ReportInfo(const char* text, int verbosity) { Report(text, VELD::Info, verbosity); }
    void ReportWarning(const char* text, int verbosity) { Report(text, VELD::Warning, verbosity); }
    void ReportError(const char* text, int verbosity) { Report(text, VELD::Error, verbosity); }

    // ---- life ----
    // A plain module's start: living again, events reset.
    void Start();
    // Dying: every wait of the module ends with VELD::ModuleDied.
    void Die();
    void OneMoreLife();
    // The last life sets m_allDeadEvent.
    void LoseOneLife();
    // Waits for the last life, at most "Engine.shutdownTimeout" (10 s when
    // missing or negative); false, with a report, when threads remain.
    bool Wait4Death();
    // The limit Wait4Death applies, in microseconds.
    static VELDDelay ShutdownTimeout();
    // A further thread running `function` on this module, counted as a life.
    void CreateThread(VELDThreadFunction function);
    bool IsStarted() const { return (m_state.load() & VELD::LivingState) != 0; }
    bool IsDying() const { return (m_state.load() & VELD::DyingState) != 0; }
    int State() const { return m_state.load(); }
    // Tells the kernel the state mask.
    void TellState();
    // The threads that run for the module; the engine's thread bodies add
    // and remove them.
    void AddThread(VELDThread* thread);
    void RemoveThread(VELDThread* thread);
    int NbThreads();

    // ---- waits: on the engine's clock, ending with VELD::ModuleDied ----
    bool Wait4Event(VELDEvent* event, long timeout);
    bool Wait4Event(VELDEvent& event, long timeout) { return Wait4Event(&event, timeout); }
    int Wait4Events(int n, VELDEvent** events, long timeout, bool addDeathEvent);
    bool MsgWait4Event(VELDEvent* event, long timeout);
    int MsgWait4Events(int n, VELDEvent** events, long timeout);
    bool Rest(long delay, VELDEvent* abortEvent = nullptr);
    bool Wait(long timestamp, VELDEvent* abortEvent = nullptr);
    int WaitForTimestamp(long t, VELDEvent* abortEvent, bool* timeStateChanged);
    int WaitForTimestamp(long t, int n, VELDEvent** events, int* cancelled, bool* timeStateChanged);

    // ---- writing ----
    VELDIOElt* StartWriting(VELDOutput& output);
    VELDIOElt* StartWriting(VELDOutput& output, long timestamp);
    void StopWriting(VELDIOElt* element, bool discard = false);
    bool IsFIFOEmpty(VELDOutput& output);
    bool IsFIFOFull(VELDOutput& output);
    void Wait4Handshake(VELDOutput& output);

    // ---- reading ----
    // The next element of `input`, blocking; the previous one is released
    // first. Null for a sequential module with nothing to read.
    VELDIOElt* StartReading(VELDInput& input);
    // The element of the first input that has one, or null when one of the
    // caller's events fired (`*inputThatAnswered` is then nb + its index).
    VELDIOElt* StartReading(int nb, VELDInput** inputs, int* inputThatAnswered, int nbEvents = 0,
                            VELDEvent** events = nullptr);
    VELDIOElt* MsgStartReading(VELDInput& input);
    VELDIOElt* MsgStartReading(int nb, VELDInput** inputs, int* inputThatAnswered, int nbEvents = 0,
                               VELDEvent** events = nullptr);
    // The last n elements, oldest first, kept held from one call to the
    // next; true when `elts` is filled.
    bool NLastStartReading(VELDInput& input, int n, VELDIOElt** elts);
    // One element of each input, their timestamps within `tolerance`; the
    // reference timestamp, or -1 (elts cleared) after `abortEvent`.
    long SynchroStartReading(int nb, VELDInput** inputs, VELDIOElt** elts, long tolerance,
                             VELDEvent* abortEvent = nullptr);
    // The same, leaving `elts` as it is on failure.
    long SynchroStartReading2(int nb, VELDInput** inputs, VELDIOElt** elts, long tolerance,
                              VELDEvent* abortEvent = nullptr);
    // Releases all that the input holds.
    void StopReading(VELDInput& input);
    bool DataAvailableInFIFO(VELDInput& input);
    // The reader number of input `index` in its FIFO, -1 when not connected.
    int ReaderHandle(int index);

    // What the runtime's waits, reads and writes need of this module.
    const VELDModuleContext& Context() const { return m_context; }

    // ---- members, in the order they matter ----
    // Handles of the built-in properties; null without performance
    // monitoring or without a processor property.
    VELDProperty* counter;
    VELDProperty* nbPeriods;
    VELDProperty* averagePeriod;
    VELDProperty* maxPeriod;
    VELDProperty* minPeriod;
    VELDProperty* contextSwitches;
    VELDProperty* CPULoad;
    VELDProperty* processor;
    // The period ring: a power-of-two array used from m_periodHead, with
    // m_periodCount entries, of which m_periodValid measured.
    VELDArray<long> m_periods;
    int m_periodHead;
    int m_periodCount;
    int m_periodValid;
    VELDInt64 m_nbMeasuredPeriods;
    VELDTimestamp m_lastPeriodTime;
    VELDInt64 m_periodSum;
    long m_minPeriod;
    long m_maxPeriod;
    // The input under work in sequential mode.
    VELDInput* m_currentInput;
    // Where each list's re-definition stands during Dynamic; null outside.
    VELDBasicListItem* m_inputCursor;
    VELDBasicListItem* m_outputCursor;
    VELDBasicListItem* m_propertyCursor;
    VELDBasicListItem* m_actionCursor;
    // VELD::LivingState and its companions. Read without a lock by the
    // waits and by other modules; a stale value is tolerated because the
    // events carry the wake-up.
    std::atomic<int> m_state;
    int m_lastErrorCode;
    VELDString m_lastErrorText;
    std::atomic<bool> m_threaded;
    VELDEvent m_dieEvent;
    VELDEvent m_allDeadEvent;
    VELDMutex2 m_structureLock;
    VELDMutex2 m_propertyLock;
    int m_nbLives;
    VELDList<VELDStackedString<40>> m_symbols;
    VELDList<VELDThread*> m_threads;
    VELDList<VELDInputImplementation*> m_inputs;
    VELDList<VELDOutputImplementation*> m_outputs;
    VELDList<VELDPropertyImplementation*> m_properties;
    VELDList<VELDActionImplementation*> m_actions;
    // The last built-in property: what follows belongs to the model.
    VELDBasicListItem* m_builtInPropertiesEnd;
    int m_nbSpecialProperties;

    // How messages name a kind of element: "Input", "input", "an input".
    struct ElementKind {
        const char* type;
        const char* name;
        const char* article;
    };

protected:
    // The checks that every declaration starts with, under the structure
    // lock: a dying module declares nothing (VELD::ModuleDied), a definition
    // needs a name, a name given must follow `pattern`. Failures are Errors.
    void CheckDeclaration(VELDMutexGuard& guard, const ElementKind& kind, const char* definitionName,
                          const char* shortName, const char* pattern);
    // The Error of a full name that the kernel already knows.
    [[noreturn]] void SymbolTaken(VELDMutexGuard& guard, const ElementKind& kind, const char* fullName);
    // A further thread whose body is `body` (a kernel thread body), running
    // `function`; waits until the thread has its start record.
    void StartThread(void* (*body)(void*), VELDThreadFunction function, const char* failure);

    // The action table of the model, if any: an action declared from one of
    // its records is given that record's index.
    const VELDActionDefinition* m_actionTable;
    int m_actionTableSize;

    // The full name "<module>.<shortName>".
    VELDStackedString<40> FullName(const char* shortName) const;
    // An Error naming the element that could not be found.
    void UnknownElement(const char* what, const char* name);
    void UnknownElement(const char* what, int index);
    // New... with the name pattern of the caller (a component's outputs may
    // not hold dots).
    VELDOutput& NewOutputChecked(const VELDOutputDefinition& definition, const char* shortName, bool narrowName,
                                 bool component);
    VELDInput& NewInputChecked(const VELDInputDefinition& definition, const char* shortName, bool component);
    // Zeroes the period figures.
    void ResetPerformanceFigures();
    // Removes every element behind the cursors and sets them to null.
    void RemoveUndeclared();

private:
    VELDModuleContext m_context;

    void NewSpecialProperties(VELDInputImplementation& input);
    void NewSpecialProperties(VELDOutputImplementation& output);
    void RemoveSpecialProperty(const VELDStackedString<40>& elementName, const char* suffix);
    VELDPropertyImplementation* FindProperty(const char* fullName);
    VELDProperty& NewPropertyNamed(const VELDPropertyDefinition& definition, const VELDStackedString<40>& fullName,
                                   const char* shortName);
    void ForgetSymbol(const char* fullName);
    // The ring of measured periods after a change of nbPeriods.
    void ResizePeriodRing(VELDInt64 size);
    void RescanExtremes();
};

#endif
