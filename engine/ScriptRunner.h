// Runs a parsed script on an engine, statement after statement. The first
// statement that fails stops the script with "<file>:<line>: <reason>":
// before `run` nothing has started, after it the diagram is shut down. The
// diagram is shut down at the end of the script too.
//
// An interruption (Ctrl-C in the veldor command) ends the wait under way,
// skips the rest of the script and shuts the diagram down; the script has
// then succeeded. A shutdown that a component asked for ends a wait as well,
// and the script goes on with its next statement.
#ifndef VELDOR_ENGINE_SCRIPT_RUNNER_H
#define VELDOR_ENGINE_SCRIPT_RUNNER_H

#include <atomic>
#include <string>

#include "Script.h"

namespace veldor {

class Engine;

class ScriptRunner {
public:
    // `interrupt`, when given, is the flag that a signal handler sets;
    // otherwise Interrupt() sets the runner's own.
    explicit ScriptRunner(Engine& engine, const std::atomic<bool>* interrupt = nullptr);

    bool Run(const Script& script, std::string* error);
    void Interrupt() { m_ownInterrupt = true; }
    bool Interrupted() const { return m_ownInterrupt.load() || (m_interrupt && m_interrupt->load()); }

private:
    // False with the reason.
    bool Execute(const Script& script, const Statement& statement, std::string* why);
    bool Wait(const Statement& statement, std::string* why);

    Engine& m_engine;
    const std::atomic<bool>* m_interrupt;
    std::atomic<bool> m_ownInterrupt;
};

}  // namespace veldor

#endif
