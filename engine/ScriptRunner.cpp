#include "ScriptRunner.h"

#include <algorithm>
#include <chrono>
#include <thread>

#include "Engine.h"

namespace veldor {

ScriptRunner::ScriptRunner(Engine& engine, const std::atomic<bool>* interrupt)
    : m_engine(engine), m_interrupt(interrupt), m_ownInterrupt(false)
{
}

bool ScriptRunner::Run(const Script& script, std::string* error)
{
    // A script shuts down what it started, and only that: one that a
    // package parses into a running diagram leaves the diagram running.
    bool started = false;
    for (const Statement& statement : script.statements) {
        if (Interrupted()) break;
        std::string why;
        if (!Execute(script, statement, &why)) {
            if (error) *error = script.Where(statement.line, why);
            if (started) m_engine.Graph().Shutdown();
            return false;
        }
        started = started || statement.kind == Statement::Run;
    }
    if (started || Interrupted()) m_engine.Graph().Shutdown();
    return true;
}

bool ScriptRunner::Execute(const Script& script, const Statement& s, std::string* why)
{
    Diagram& diagram = m_engine.Graph();
    switch (s.kind) {
    case Statement::Load:
        return m_engine.LoadPackage(script.PathOf(s.words[0]), why);
    case Statement::Create:
        return diagram.Create(s.words[0], s.words[1], why) != nullptr;
    case Statement::Set:
        return diagram.SetProperty(s.words[0], s.words[1], s.quoted, why);
    case Statement::Connect:
        return diagram.Connect(s.words[0], s.words[1], why);
    case Statement::Trigger:
        return diagram.Trigger(s.words[0], s.words.size() > 1 ? s.words[1].c_str() : nullptr, why);
    case Statement::Run:
        return diagram.Run(why);
    case Statement::Wait:
        return Wait(s, why);
    case Statement::Shutdown:
        diagram.Shutdown();
        return true;
    }
    return false;
}

bool ScriptRunner::Wait(const Statement& s, std::string* why)
{
    Diagram& diagram = m_engine.Graph();
    for (const std::string& name : s.words)
        if (!diagram.Find(name)) {
            *why = "unknown component \"" + name + "\"";
            return false;
        }
    using Clock = std::chrono::steady_clock;
    const Clock::time_point deadline = Clock::now() + std::chrono::microseconds(s.microseconds);
    const auto step = std::chrono::milliseconds(10);
    for (;;) {
        if (Interrupted()) return true;
        if (m_engine.TakeShutdownRequest()) {
            diagram.Shutdown();
            return true;
        }
        Clock::duration pause = step;
        if (s.waitKind == Statement::ForDuration) {
            Clock::time_point now = Clock::now();
            if (now >= deadline) return true;
            pause = std::min<Clock::duration>(step, deadline - now);
        } else if (s.waitKind == Statement::ForDeath) {
            // A component killed meanwhile is as dead as can be.
            bool allDead = std::all_of(s.words.begin(), s.words.end(), [&diagram](const std::string& name) {
                return !diagram.Find(name) || diagram.IsDead(name);
            });
            if (allDead) return true;
        }
        std::this_thread::sleep_for(pause);
    }
}

}  // namespace veldor
