// Components for the runtime tests: a model whose life the test writes with
// lambdas, definition tables built in one call, and an engine that knows the
// components by name (for the look-ups and renames of the graph).
#ifndef VELDOR_TESTS_RUNTIME_SUPPORT_H
#define VELDOR_TESTS_RUNTIME_SUPPORT_H

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "Engine.h"
#include "quiet_engine.h"
#include "veld_io_elt.h"
#include "veld_model.h"
#include "veld_private.h"

// A model that runs what the test gives it. Without a core it rests until it
// dies.
class Probe : public VELDModel<Probe> {
public:
    using VELDModel::VELDModel;

    void Birth() override
    {
        if (birth) birth(*this);
    }
    void Core() override
    {
        if (core)
            core(*this);
        else
            Wait4Event(m_dieEvent, VELD::Infinite);
    }
    void Death() override
    {
        if (death) death(*this);
    }

    std::function<void(Probe&)> birth, core, death;
};

// The same with a Dynamic of the test's.
class DynamicProbe : public VELDModel<DynamicProbe, Probe> {
public:
    using VELDModel::VELDModel;
    void Dynamic() override
    {
        if (dynamic) dynamic(*this);
    }
    std::function<void(DynamicProbe&)> dynamic;
};

// The tables of a model, alive as long as the components made from them.
// Each table ends with a record of null name.
struct ModelTables {
    std::vector<VELDInputDefinition> inputs;
    std::vector<VELDOutputDefinition> outputs;
    std::vector<VELDPropertyDefinition> properties;
    std::vector<VELDActionDefinition> actions;
    VELDComponentDefinition definition;

    // Counts: how many entries exist from the start; the rest are for
    // Dynamic.
    void Finish(VELDUInt32 nbInputs, VELDUInt32 nbOutputs, VELDUInt32 nbProperties, VELDUInt32 nbActions,
                VELDUInt32 kind = VELD::Threaded | VELD::Sequential, bool threaded = true)
    {
        inputs.push_back(VELDInputDefinition{nullptr, 0, nullptr, 0, 1});
        outputs.push_back(VELDOutputDefinition{nullptr, 0, VELDTypeInfo(), 1, 16, 1, 1});
        properties.emplace_back();
        actions.emplace_back();
        definition = VELDComponentDefinition{"TestModel", "1.2.3", &Probe::Instantiate, nullptr, nullptr, 0,
                                             nbInputs, inputs.data(), nbOutputs, outputs.data(), nbProperties,
                                             properties.data(), nbActions, actions.data(), 128, kind, threaded, 0};
    }
};

inline VELDInputDefinition IntegerInput(const char* name, int readerType = VELD::FifoReader, int subsampling = 1)
{
    return VELDInputDefinition{name, 0, &VELD::FilterIntegers32, readerType, subsampling};
}

inline VELDOutputDefinition IntegerOutput(const char* name, int fifoSize = 16)
{
    return VELDOutputDefinition{name, 0, VELDTypeInfo(VELD::Integer32), 1, fifoSize, 1, 1};
}

inline VELDPropertyDefinition IntegerProperty(const char* name, VELDInt64 value, bool needsInit = false)
{
    return VELDPropertyDefinition(name, new VELDPropertyValue(value), nullptr, needsInit, false, false, false);
}

// An engine that keeps the components by name, as the graph would.
class TestEngine : public veldor::Engine {
public:
    explicit TestEngine(const veldor::EngineOptions& options) : veldor::Engine(options) {}
    ~TestEngine() override
    {
        for (auto& entry : m_components) Destroy(entry.second);
    }

    template <class Model = Probe>
    Model& Make(const char* name, ModelTables& tables)
    {
        Model* component = new Model(name, tables.definition);
        std::lock_guard<std::mutex> lock(m_mutex);
        m_components[name] = component;
        return *component;
    }
    // Shuts the component down when it lives, waits for its threads and
    // destroys it.
    void Remove(VELDComponent& component)
    {
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            for (auto it = m_components.begin(); it != m_components.end(); ++it)
                if (it->second == &component) {
                    m_components.erase(it);
                    break;
                }
        }
        Destroy(&component);
    }
    void TakeName(const char* name) { m_otherNames.push_back(name); }
    // Tables that outlive the components made from them.
    ModelTables& NewTables()
    {
        m_tables.emplace_back(new ModelTables());
        return *m_tables.back();
    }

    VELDComponent* Component(const char* name) override
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        auto it = m_components.find(name ? name : "");
        return it == m_components.end() ? nullptr : it->second;
    }
    void* CoreFunction(const char* name) override
    {
        for (const std::string& other : m_otherNames)
            if (other == (name ? name : "")) return this;
        return nullptr;
    }
    bool RenameComponent(const char* oldName, const char* newName) override
    {
        const std::string from(oldName), to(newName);
        VELDComponent* component;
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            if (m_components.count(to) || !m_components.count(from)) return false;
            component = m_components[from];
            m_components.erase(from);
            m_components[to] = component;
        }
        component->Rename(from.c_str(), to.c_str());
        return true;
    }

private:
    void Destroy(VELDComponent* component)
    {
        if (component->IsStarted()) component->Shutdown();
        Threads().WaitUntilLeft(component, 20000000);
        delete component;
    }

    std::vector<std::unique_ptr<ModelTables>> m_tables;
    std::mutex m_mutex;
    std::map<std::string, VELDComponent*> m_components;
    std::vector<std::string> m_otherNames;
};

// Values seen by a reader, from any thread.
class Seen {
public:
    void Add(int value)
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_values.push_back(value);
        m_threads.push_back(std::this_thread::get_id());
    }
    std::vector<int> Values()
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_values;
    }
    std::vector<std::thread::id> Threads()
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_threads;
    }
    // Waits (generously) until `n` values came.
    bool WaitFor(size_t n)
    {
        for (int i = 0; i < 2000; ++i) {
            {
                std::lock_guard<std::mutex> lock(m_mutex);
                if (m_values.size() >= n) return true;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        return false;
    }

private:
    std::mutex m_mutex;
    std::vector<int> m_values;
    std::vector<std::thread::id> m_threads;
};

inline void Write(VELDModule& module, VELDOutput& output, int value, long timestamp = 0)
{
    VELDIOElt* element = module.StartWriting(output, timestamp);
    *element->Integer32(0) = value;
    element->VectorSize() = 1;
    module.StopWriting(element);
}

inline int ValueOf(VELDIOElt* element) { return *element->Integer32(0); }

#endif
