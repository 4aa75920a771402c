// A module as the runtime sees it when it waits, reads or writes for one: a
// death event, a state mask, an error path that marks the module and throws,
// and a report path. Both paths keep their last text for the test.
#ifndef VELDOR_TESTS_TEST_MODULE_H
#define VELDOR_TESTS_TEST_MODULE_H

#include <atomic>
#include <mutex>
#include <string>

#include "veld_constants.h"
#include "veld_event.h"
#include "veld_module_waits.h"

class TestModule {
public:
    TestModule() : state(VELD::LivingState)
    {
        owner.dieEvent = &death;
        owner.state = &state;
        owner.module = this;
        owner.error = [](void* m, const char* text) {
            TestModule* module = static_cast<TestModule*>(m);
            module->state |= VELD::ErrorState;
            module->Keep(module->lastError, text);
            throw VELD::ErrorException;
        };
        owner.report = [](void* m, const char* text, int, int) {
            TestModule* module = static_cast<TestModule*>(m);
            module->Keep(module->lastReport, text);
        };
    }
    TestModule(const TestModule&) = delete;
    TestModule& operator=(const TestModule&) = delete;

    void Die()
    {
        state |= VELD::DyingState;
        death.Set();
    }
    std::string LastError()
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return lastError;
    }

    VELDEvent death;
    std::atomic<int> state;
    VELDModuleContext owner;
    std::string lastError, lastReport;

private:
    void Keep(std::string& where, const char* text)
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        where = text;
    }
    std::mutex m_mutex;
};

#endif
