// Inputs and outputs that a component declares in Dynamic from its
// properties. Dynamic runs again after every property change; a model kept
// here for each dynamic item survives from one pass to the next. It owns the
// definition record that NewInput or NewOutput needs (and the strings the
// record points at), remembers the item's name and type, and knows whether
// the last pass used it. A set of models drops the items that two passes in
// a row left unused.
//
// Use from Dynamic only: nothing here locks.
//
//   void Dynamic() override
//   {
//       m_outputs.Reset();
//       ...
//       m_outputs.NewOutput(*this, "oCAN", VELD::CANFrame, "");
//   }
//
// A broken expectation (a model without content, an item not made yet, an
// unknown name) is fatal: it is reported with where it happened and throws
// VELD::ErrorException, as a module's Error does.
#ifndef VELD_DYNAMIC_IO_MODELS_H
#define VELD_DYNAMIC_IO_MODELS_H

#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "veld.h"
#include "veld_definitions.h"
#include "veld_input.h"
#include "veld_object_types.h"
#include "veld_os_helpers.h"
#include "veld_output.h"
#include "veld_string.h"

namespace VELD {

namespace DynamicModelDetail {

// "[<pid>.<tid>] <file>:<line>/<function> : Assertion Failed: <condition>",
// then the same with the prefix doubled and the code, both at level 2; then
// the code is thrown.
[[noreturn]] inline void AssertionFailed(const char* file, int line, const char* function, const char* condition)
{
    std::string base(file);
    const std::size_t slash = base.find_last_of("/\\");
    if (slash != std::string::npos) base = base.substr(slash + 1);
    const std::string prefix = "[" + std::to_string(::getpid()) + "." + std::to_string(::syscall(SYS_gettid)) +
                               "] " + base + ":" + std::to_string(line) + "/" + function;
    const std::string failed = prefix + " : Assertion Failed: " + condition;
    VELD::Report(failed.c_str(), VELD::Error, 0);
    const std::string coded = prefix + " : " + failed + ": " + std::to_string(VELD::ErrorException);
    VELD::Report(coded.c_str(), VELD::Error, 0);
    throw VELD::ErrorException;
}

inline std::string ToLocale(const VELDString& utf8) { return VELDStringHelper::UTF8ToLocale(utf8); }

}  // namespace DynamicModelDetail

#define VELD_DYNAMIC_ASSERT(condition)                                                                  \
    do {                                                                                                \
        if (!(condition))                                                                               \
            ::VELD::DynamicModelDetail::AssertionFailed(__FILE__, __LINE__, __FUNCTION__, #condition);  \
    } while (0)

// What the models of inputs and outputs share; the state is the derived
// class's.
template <class TModel>
class DynamicModelBase {
public:
    bool IsValid() const { return Self().m_state != nullptr; }
    bool isUnused() const
    {
        VELD_DYNAMIC_ASSERT(IsValid());
        return Self().m_state->m_unused;
    }
    void setUnused(bool unused)
    {
        VELD_DYNAMIC_ASSERT(IsValid());
        Self().m_state->m_unused = unused;
    }
    auto& Instance() const
    {
        VELD_DYNAMIC_ASSERT(IsValid());
        return Self().m_state->Instance();
    }
    VELDTypeInfoValue TypeInfoValue() const
    {
        VELD_DYNAMIC_ASSERT(IsValid());
        return Self().m_state->m_typeinfovalue;
    }
    std::string TypeName() const
    {
        VELD_DYNAMIC_ASSERT(IsValid());
        return DynamicModelDetail::ToLocale(Self().m_state->m_typename);
    }
    std::string ShortName() const
    {
        VELD_DYNAMIC_ASSERT(IsValid());
        return Self().m_state->m_name;
    }
    const auto& Definition() const
    {
        VELD_DYNAMIC_ASSERT(IsValid());
        return Self().m_state->m_definition;
    }

protected:
    // Declares the item again from the kept state, or from a new state that
    // replaces the old one only once the item exists; marks the model used.
    template <class MakeState, class Declare>
    auto& Renew(bool keep, MakeState makeState, Declare declare)
    {
        if (keep) {
            declare(*Self().m_state);
        } else {
            std::unique_ptr<typename TModel::State> fresh(makeState());
            declare(*fresh);
            Self().m_state = std::move(fresh);
        }
        setUnused(false);
        return Instance();
    }

private:
    const TModel& Self() const { return static_cast<const TModel&>(*this); }
    TModel& Self() { return static_cast<TModel&>(*this); }
};

// A dynamic output: what NewOutput gets, and the output it made.
class DynamicOutputModel : public DynamicModelBase<DynamicOutputModel> {
public:
    typedef VELDOutput InstanceType;

    struct State {
        State(const std::string& name, VELDTypeInfoValue typeValue, const std::string& typeName)
            : m_unused(false), m_name(name), m_typeinfovalue(typeValue),
              m_typename(VELDStringHelper::LocaleToUTF8(typeName)), m_definition(), m_output(nullptr)
        {
            m_definition.name = m_name.c_str();
            m_definition.reserved = 0;
            m_definition.type = VELDTypeInfo(m_typeinfovalue, m_typename.Beginning(), nullptr);
            m_definition.size = 0;
            m_definition.fifoSize = 16;
            m_definition.subsampling = 1;
            m_definition.shareable = 1;
        }
        State(const State&) = delete;
        State& operator=(const State&) = delete;

        VELDOutput& Instance() const
        {
            VELD_DYNAMIC_ASSERT(m_output != nullptr);
            return *m_output;
        }

        bool m_unused;
        std::string m_name;
        VELDTypeInfoValue m_typeinfovalue;
        VELDString m_typename;
        VELDOutputDefinition m_definition;
        VELDOutput* m_output;
    };

    DynamicOutputModel() = default;
    DynamicOutputModel(DynamicOutputModel&&) = default;
    DynamicOutputModel& operator=(DynamicOutputModel&&) = default;

    VELDOutput& Output() const
    {
        VELD_DYNAMIC_ASSERT(IsValid());
        return m_state->Instance();
    }

    // Declares the output again when name and type are those of the state;
    // otherwise builds a new state, declares from it, and only then lets the
    // old one go, so that the old definition outlives its last use.
    template <class TComponent>
    VELDOutput& NewOutput(TComponent& component, const std::string& name, VELDTypeInfoValue typeValue,
                          const std::string& typeName)
    {
        const bool keep = m_state && m_state->m_typeinfovalue == typeValue && TypeName() == typeName;
        return Renew(
            keep, [&] { return new State(name, typeValue, typeName); },
            [&](State& state) { state.m_output = &component.NewOutput(state.m_definition, nullptr); });
    }

private:
    friend class DynamicModelBase<DynamicOutputModel>;
    std::unique_ptr<State> m_state;
};

// A dynamic input. The integer of its state is the reader type.
class DynamicInputModel : public DynamicModelBase<DynamicInputModel> {
public:
    typedef VELDInput InstanceType;

    struct State {
        State(const std::string& name, VELDTypeInfoValue typeValue, const std::string& typeName, int readerType)
            : m_unused(false), m_name(name), m_typeinfovalue(typeValue),
              m_typename(VELDStringHelper::LocaleToUTF8(typeName)),
              m_filter(VELD::NoMask, VELD::NoType, typeValue), m_definition(), m_input(nullptr)
        {
            if (m_typename.Length() > 0) {
                m_filterName = "^" + std::string(m_typename.Beginning()) + "$";
                m_filter.nameFilter = m_filterName.c_str();
            }
            m_definition.name = m_name.c_str();
            m_definition.reserved = 0;
            m_definition.typeFilter = &m_filter;
            m_definition.readerType = readerType;
            m_definition.subsampling = 1;
        }
        State(const State&) = delete;
        State& operator=(const State&) = delete;

        VELDInput& Instance() const
        {
            VELD_DYNAMIC_ASSERT(m_input != nullptr);
            return *m_input;
        }

        bool m_unused;
        std::string m_name;
        VELDTypeInfoValue m_typeinfovalue;
        VELDString m_typename;
        VELDTypeFilterBase m_filter;
        VELDInputDefinition m_definition;
        VELDInput* m_input;
        std::string m_filterName;  // the name expression m_filter points at
    };

    DynamicInputModel() = default;
    DynamicInputModel(DynamicInputModel&&) = default;
    DynamicInputModel& operator=(DynamicInputModel&&) = default;

    VELDInput& Input() const
    {
        VELD_DYNAMIC_ASSERT(IsValid());
        return m_state->Instance();
    }

    template <class TComponent>
    VELDInput& NewInput(TComponent& component, const std::string& name, VELDTypeInfoValue typeValue,
                        const std::string& typeName, int readerType)
    {
        const bool keep = m_state && m_state->m_typeinfovalue == typeValue && TypeName() == typeName &&
                          m_state->m_definition.readerType == readerType;
        return Renew(
            keep, [&] { return new State(name, typeValue, typeName, readerType); },
            [&](State& state) { state.m_input = &component.NewInput(state.m_definition, nullptr); });
    }

private:
    friend class DynamicModelBase<DynamicInputModel>;
    std::unique_ptr<State> m_state;
};

// The models of one kind of dynamic item, in the order of their creation,
// used ones kept ahead of unused ones.
template <class TModelSet, class TModel>
class DynamicModelSetBase {
public:
    typedef TModel ModelType;
    typedef typename TModel::InstanceType InstanceType;

    // At the start of Dynamic: models left unused by the last pass go, the
    // others are marked unused until this pass declares them.
    void Reset()
    {
        m_models.erase(std::remove_if(m_models.begin(), m_models.end(),
                                      [](const ModelType& m) { return !m.IsValid() || m.isUnused(); }),
                       m_models.end());
        for (ModelType& m : m_models) m.setUnused(true);
    }

    std::size_t Size() const { return m_models.size(); }

    bool HasModel(const std::string& name) const { return Find(name) != m_models.end(); }

    const ModelType& Model(const std::string& name) const
    {
        auto it = Find(name);
        VELD_DYNAMIC_ASSERT(it != m_models.end());
        return *it;
    }
    ModelType& Model(const std::string& name)
    {
        return const_cast<ModelType&>(static_cast<const DynamicModelSetBase&>(*this).Model(name));
    }
    const ModelType& Model(std::size_t index) const
    {
        VELD_DYNAMIC_ASSERT(index < m_models.size());
        return m_models[index];
    }
    ModelType& Model(std::size_t index)
    {
        VELD_DYNAMIC_ASSERT(index < m_models.size());
        return m_models[index];
    }
    const ModelType& Model(const InstanceType& instance) const
    {
        auto it = std::find_if(m_models.begin(), m_models.end(), [&](const ModelType& m) {
            return m.IsValid() && &m.Instance() == &instance;
        });
        VELD_DYNAMIC_ASSERT(it != m_models.end());
        return *it;
    }
    ModelType& Model(const InstanceType& instance)
    {
        return const_cast<ModelType&>(static_cast<const DynamicModelSetBase&>(*this).Model(instance));
    }

    InstanceType& Instance(std::size_t index) const { return Model(index).Instance(); }
    InstanceType& Instance(const std::string& name) const { return Model(name).Instance(); }
    InstanceType& Instance(const ModelType& model) const { return model.Instance(); }

    // The instances of the used models, in order.
    std::vector<InstanceType*> Instances() const
    {
        std::vector<InstanceType*> instances;
        for (const ModelType& m : m_models)
            if (m.IsValid() && !m.isUnused()) instances.push_back(&m.Instance());
        return instances;
    }

    std::vector<const ModelType*> Models() const
    {
        std::vector<const ModelType*> models;
        for (const ModelType& m : m_models) models.push_back(&m);
        return models;
    }
    std::vector<ModelType*> Models()
    {
        std::vector<ModelType*> models;
        for (ModelType& m : m_models) models.push_back(&m);
        return models;
    }

    std::size_t usedModelCount() const
    {
        return static_cast<std::size_t>(std::count_if(m_models.begin(), m_models.end(), [](const ModelType& m) {
            return m.IsValid() && !m.isUnused();
        }));
    }

    // The model of that name, or a new empty one at the end.
    ModelType& getOrAddModel(const std::string& name)
    {
        auto it = std::find_if(m_models.begin(), m_models.end(),
                               [&](const ModelType& m) { return m.IsValid() && m.ShortName() == name; });
        if (it != m_models.end()) return *it;
        m_models.emplace_back();
        return m_models.back();
    }

    // Used models first, unused last, each group in its order.
    void partitionModels()
    {
        std::stable_partition(m_models.begin(), m_models.end(),
                              [](const ModelType& m) { return m.IsValid() && !m.isUnused(); });
    }

    InstanceType& postNewInstance(const std::string& name)
    {
        partitionModels();
        return Model(name).Instance();
    }

protected:
    typename std::deque<ModelType>::const_iterator Find(const std::string& name) const
    {
        return std::find_if(m_models.begin(), m_models.end(),
                            [&](const ModelType& m) { return m.IsValid() && m.ShortName() == name; });
    }

    std::deque<ModelType> m_models;
};

class DynamicOutputModelSet : public DynamicModelSetBase<DynamicOutputModelSet, DynamicOutputModel> {
public:
    template <class TComponent>
    VELDOutput& NewOutput(TComponent& component, const std::string& name, VELDTypeInfoValue typeValue,
                          const std::string& typeName)
    {
        getOrAddModel(name).NewOutput(component, name, typeValue, typeName);
        return postNewInstance(name);
    }
    std::vector<VELDOutput*> Outputs() const { return Instances(); }
};

class DynamicInputModelSet : public DynamicModelSetBase<DynamicInputModelSet, DynamicInputModel> {
public:
    template <class TComponent>
    VELDInput& NewInput(TComponent& component, const std::string& name, VELDTypeInfoValue typeValue,
                        const std::string& typeName, int readerType)
    {
        getOrAddModel(name).NewInput(component, name, typeValue, typeName, readerType);
        return postNewInstance(name);
    }
    std::vector<VELDInput*> Inputs() const { return Instances(); }
};

}  // namespace VELD

#endif
