// The base of every element of a diagram: a module with a lifecycle. A model
// derives from it and overrides what it needs of Dynamic, Birth, Core,
// Banzai and Death; see veld_model.h for declaring a model.
//
// A threaded component has one main thread, whose body is the engine's: it
// calls Birth, loops on Core while the component lives, then ends with
// Banzai, the wait for the other threads, Death and Die4Good. A sequential
// component has no thread of its own: Start runs its Birth, each write
// upstream runs its Core on the writer's thread (SequentialCore), and
// Shutdown runs its death.
//
// Any Set on a property runs Dynamic again (outside a run), so that a model
// can declare its elements from its properties; an element declared again is
// the same object, one no longer declared is removed.
//
// The engine and packages reach components by the position of the virtual
// operations: never reorder them.
#ifndef VELD_COMPONENT_H
#define VELD_COMPONENT_H

#include "veld_module.h"

struct VELDPoint {
    int x;
    int y;
};

class VELDComponent : public VELDModule {
public:
    VELDComponent(const char* name, VELDComponentDefinition& definition);
    // Gives the instance back to the model's count; reports a component
    // destroyed while alive.
    ~VELDComponent() override;

    // ---- virtual operations, in their fixed order (the first ones are
    // VELDModule's) ----
    const char* Kind() override;
    // The stand-in for the loop of a threaded component: reads what came on
    // `input` (honouring its subsampling) and runs Core, on the writer's
    // thread.
    void SequentialCore(VELDInput* input) override;
    // VELDModule's Set, then CallDynamic.
    void Set(VELDProperty& property, bool value) override;
    void Set(VELDProperty& property, VELDInt64 value) override;
    void Set(VELDProperty& property, VELDFloat64 value) override;
    void Set(VELDProperty& property, const VELDString& value) override;
    void Set(VELDProperty& property, const VELDEnumStruct& value) override;
    // Declares the elements beyond the definition's counts.
    virtual void Dynamic();
    virtual void Core() = 0;
    virtual void Birth();
    // Runs when the component starts dying, before the wait for its threads.
    virtual void Banzai();
    virtual void Death();
    // Frees every output's buffer.
    virtual void FreeBuffers();
    virtual VELDPoint GetLocation();
    virtual void SetLocation(const VELDPoint& location);

    using VELDModule::Set;

    // ---- for the engine ----
    // Re-runs Dynamic unless the component lives or is inside Dynamic.
    void CallDynamic();
    // The cursors as CallDynamic sets them, and ErrorState cleared.
    void ResetDynamic();
    // Allocates the outputs and starts the main thread, or, for a
    // sequential component, runs Birth. Throws VELD::ErrorException when a
    // property that needs initialising was never set.
    void Start();
    // Sets the die event, waits up to 10 s for the component to be dead
    // (reporting one that refuses), steps the readers of its outputs aside
    // and frees the buffers.
    void Shutdown();
    // The death of a sequential component; nothing for a threaded one.
    void SequentialDeath();
    // Ends the component from its own code: a threaded one leaves its
    // thread by throwing VELD::ModuleDied.
    void CommitSuicide();
    // Death, with whatever it throws reported and stopped.
    void CallDeath();
    // The last step of dying: reads released, figures zeroed, DeadState.
    void Die4Good();
    // Forgets the read state of every input and empties every output's
    // FIFO.
    void CleanUp();
    // A further thread of the component running `function`.
    void CreateThread(VELDThreadFunction function);
    // A further thread running function(arg); (success, thread id).
    VELDCouple<bool, unsigned long> CreateThread(VELDThreadFreeFunction function, void* arg);

    // ---- declaring elements ----
    VELDInput& NewInput(const VELDInputDefinition& definition, const char* name = nullptr);
    // Entry `index` of the definition's table, or the entry of that name.
    VELDInput& NewInput(int index, const char* name = nullptr);
    VELDInput& NewInput(const char* model, const char* name = nullptr);
    VELDOutput& NewOutput(const VELDOutputDefinition& definition, const char* name = nullptr);
    VELDOutput& NewOutput(int index, const char* name = nullptr);
    VELDOutput& NewOutput(const char* model, const char* name = nullptr);
    VELDProperty& NewProperty(const VELDPropertyDefinition& definition, const char* name = nullptr)
    {
        return VELDModule::NewProperty(definition, name);
    }
    VELDProperty& NewProperty(int index, const char* name = nullptr);
    VELDProperty& NewProperty(const char* model, const char* name = nullptr);
    VELDAction& NewAction(const VELDActionDefinition& definition, const char* name = nullptr)
    {
        return VELDModule::NewAction(definition, name);
    }
    VELDAction& NewAction(int index, const char* name = nullptr);
    VELDAction& NewAction(const char* model, const char* name = nullptr);

    // The model name.
    const char* ModelName() const { return m_definition->name; }
    VELDComponentDefinition& Definition() const { return *m_definition; }
    // Set by the engine's main thread once Birth has returned.
    VELDEvent& BirthEvent() { return m_birthEvent; }
    // The built-in action: renames the component after the output connected
    // to its first input.
    static void ActionRenameAfterUpstreamComponent(VELDModule* module, int index);

    // Inside a catch block: " : Fatal error : ..." telling what was thrown,
    // as the lifecycle reports it after the kind and the name. A thrown text
    // is quoted when `strings`.
    static VELDString DescribeThrown(bool strings);

    // Takes one instance from a limited model; false when none remains. The
    // constructor does it.
    static bool TakeInstance(VELDComponentDefinition& definition);
    static void GiveInstanceBack(VELDComponentDefinition& definition);

    VELDComponentDefinition* m_definition;
    VELDMutex m_sequentialLock;  // held while a sequential component runs Birth or Core
    VELDMutex2 m_startLock;      // serialises Start and CallDynamic
    VELDEvent m_birthEvent;
    std::atomic<bool> m_inDynamic;
    bool m_sequentialDead;  // no sequential life in progress
    VELDPoint m_location;

private:
    // "<kind> <name><text>" as a message box and an error report.
    void ReportFatal(const char* text);
    // Steps of SequentialCore without its lock: read what came on `input`
    // and run Core.
    void SequentialLoop(VELDInput* input);
    // Banzai, with what it throws reported and stopped.
    void CallBanzai();
    // The sequential dying sequence after Birth, Core or a suicide.
    void SequentialDyingSequence();
    // A sequential component's death on the calling thread: its life given
    // back, Banzai, the wait for its threads, Death, Die4Good.
    void DieInPlace();
    // Where each list's re-definition starts: after what the definition's
    // counts cover.
    void SetCursors();
    void StopOpenReads();
    void StepReadersAside();

    // The base's Dynamic as the component's virtual table held it while the
    // base was built: a model whose Dynamic is still this one declares
    // nothing, and keeps what it has.
    void (*m_baseDynamic)(VELDComponent*);
};

#endif
