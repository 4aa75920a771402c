// The components of an engine's diagram and what is done to them: create,
// find, rename, start, shut down, kill; run and shut down the whole; and the
// user's operations by full name (set a property from text, connect an
// output to an input, trigger an action), each answering with a reason when
// it fails.
//
// Components are kept in creation order, which is the order Run starts
// them in (those whose autoStart is false are left out) and Shutdown stops
// them in. A component is destroyed through its virtual destructor, once its
// connections are detached and its threads have left the engine's thread
// bodies. One whose threads never leave (a component that refuses to die)
// is not destroyed: it is kept aside, nameless, until the engine ends, and
// the package files then stay loaded for the rest of the process.
//
// Shutdown of the diagram detaches every connection, so that the engine is
// left clean for destruction, and remembers them: the next Run attaches
// again those whose ends still exist.
//
// Operations that change the diagram are serialised; look-ups are not, and
// may be called from components' threads while an operation runs.
#ifndef VELDOR_ENGINE_DIAGRAM_H
#define VELDOR_ENGINE_DIAGRAM_H

#include <atomic>
#include <mutex>
#include <string>
#include <vector>

class VELDComponent;

namespace veldor {

class Engine;

class Diagram {
public:
    explicit Diagram(Engine& engine);
    Diagram(const Diagram&) = delete;
    Diagram& operator=(const Diagram&) = delete;
    ~Diagram();

    // ---- components ----
    // A component of `model` named `name`, its Dynamic run once. Null, with
    // the reason, for an unknown model, a name in use or not valid, or a
    // model that failed to make it.
    VELDComponent* Create(const std::string& model, const std::string& name, std::string* error = nullptr);
    VELDComponent* Find(const std::string& name) const;
    // In creation order.
    std::vector<std::string> Names() const;
    // Refuses a name in use, an invalid one, and a component that runs.
    // The component's full names in the symbol table follow it.
    bool Rename(const std::string& oldName, const std::string& newName, std::string* error = nullptr);
    bool Start(const std::string& name, std::string* error = nullptr);
    bool Shutdown(const std::string& name, std::string* error = nullptr);
    // Shuts the component down if needed, detaches it and destroys it.
    bool Kill(const std::string& name, std::string* error = nullptr);

    // ---- by full name ----
    // "<component>.<property>" or "Engine.<setting>", value as PropertyText
    // reads it.
    bool SetProperty(const std::string& fullName, const std::string& value, bool quoted,
                     std::string* error = nullptr);
    bool Connect(const std::string& output, const std::string& input, std::string* error = nullptr);
    // The argument is passed as given; null passes an empty text.
    bool Trigger(const std::string& fullName, const char* argument, std::string* error = nullptr);

    // ---- the whole ----
    // Starts the components in creation order ("Engine.sequentialStart"
    // makes each wait for the birth of the one before). When one fails to
    // start, those started are shut down again and the result is false.
    bool Run(std::string* error = nullptr);
    // Stops every component, detaches every connection (remembered for the
    // next Run). Nothing happens when nothing runs.
    void Shutdown();
    // Shutdown, then destroys every component and forgets the connections.
    void Clear();
    bool IsRunning() const { return (m_state.load() & 1) != 0; }
    // VELD::Running, VELD::ShuttingDown, VELD::Resetting while they last.
    int State() const { return m_state.load(); }
    // True when the calling thread runs for one of the components.
    bool OnComponentThread() const;
    // True when the component exists and is dead.
    bool IsDead(const std::string& name) const;
    // Components that could not be destroyed because their threads stayed.
    int NbAbandoned() const;
    // Destroys those of them whose threads leave within the time given to
    // each; returns how many remain.
    int ReleaseAbandoned(long timeoutMicroseconds);

private:
    struct Link {
        std::string output;
        std::string input;
    };

    // Each takes m_operation first.
    bool StartLocked(VELDComponent& component, std::string* error);
    void ShutdownLocked(VELDComponent& component);
    void DetachAllOf(VELDComponent& component);
    void Destroy(VELDComponent* component);
    std::vector<VELDComponent*> Snapshot() const;
    // An info for a verbose report.
    void Tell(const std::string& text);
    bool CheckName(const std::string& name, std::string* error) const;
    // The component named by the part of `fullName` before its first ".",
    // with the reason when it does not exist.
    bool KnownModule(const std::string& fullName, std::string* error) const;

    Engine& m_engine;
    std::recursive_mutex m_operation;  // one change of the diagram at a time
    mutable std::mutex m_listMutex;    // the list itself, for look-ups
    std::vector<VELDComponent*> m_components;
    std::vector<VELDComponent*> m_abandoned;
    std::vector<Link> m_remembered;
    std::atomic<int> m_state;
};

}  // namespace veldor

#endif
