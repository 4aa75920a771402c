// A package built only for the tests of diagrams: plain components whose
// behaviour is easy to check from outside, through their properties.
//
//   Generator  writes 1, 2, 3... on oValue, one each `period`, `count` of
//              them (0: no end)
//   Counter    reads iValue with the reader type of its `reader` property
//              (its Dynamic declares the input) and counts what it got:
//              received, last, gaps (a value skipped); `delay` makes it slow
//   Merger     has as many inputs i0, i1... as its `inputs` property says
//   Labelled   can't start until its `label` was set; has a property of each
//              type and a Float output that nothing accepts
//   Stubborn   with `refusal`, its Core ignores death that long (`deaf`
//              tells that it is in there)
//   Thrower    throws a std::exception from Birth, Core or Death
//
// Most counts are -1: the engine resolves them.
#include <stdexcept>
#include <string>

#include "veld.h"
#include "veld_io_elt.h"
#include "veld_model.h"

namespace {

// name, value, unit, needs initialising, modifiable after start, read-only,
// locked
VELDPropertyDefinition Setting(const char* name, VELDPropertyValue* value, const char* unit = nullptr)
{
    return VELDPropertyDefinition(name, value, unit, false, false, false, false);
}

VELDPropertyDefinition Figure(const char* name)
{
    return VELDPropertyDefinition(name, new VELDPropertyValue(VELDInt64(0)), nullptr, false, true, true, false);
}

VELDInputDefinition IntegerInput(const char* name, int readerType)
{
    return VELDInputDefinition{name, 0, &VELD::FilterInteger, readerType, 1};
}

VELDOutputDefinition IntegerOutput(const char* name)
{
    return VELDOutputDefinition{name, 0, VELDTypeInfo(VELD::Integer), 1, 16, 1, 1};
}

const VELDUInt32 kAll = 0xFFFFFFFFu;  // the whole table: the engine counts it

// A model's record; every property table is counted by the engine.
template <class Model>
VELDComponentDefinition Define(const char* name, const char* version, VELDUInt32 nbInputs, VELDInputDefinition* inputs,
                               VELDUInt32 nbOutputs, VELDOutputDefinition* outputs, VELDPropertyDefinition* properties,
                               VELDActionDefinition* actions = nullptr, VELDUInt32 kind = VELD::Threaded)
{
    const VELDUInt32 nbActions = actions ? kAll : 0;
    return {name, version, &Model::Instantiate, nullptr, nullptr, 0, nbInputs, inputs, nbOutputs, outputs, kAll,
            properties, nbActions, actions, 128, kind, kind == VELD::Threaded, 0};
}

const VELDInputDefinition kNoInput = {nullptr, 0, nullptr, 0, 0};
const VELDOutputDefinition kNoOutput = {nullptr, 0, VELDTypeInfo(), 0, 0, 0, 0};

class Generator : public VELDModel<Generator> {
public:
    using VELDModel::VELDModel;

    void Birth() override { m_next = 1; }

    void Core() override
    {
        const VELDInt64 count = GetIntegerProperty("count");
        if (count == 0 || m_next <= count) {
            VELDIOElt* element = StartWriting(Output(0));
            *element->Integer32(0) = static_cast<VELDInt32>(m_next++);
            StopWriting(element);
        }
        Rest(static_cast<long>(GetIntegerProperty("period")));
    }

private:
    VELDInt64 m_next = 1;
};

VELDOutputDefinition g_generatorOutputs[] = {IntegerOutput("oValue"), kNoOutput};
VELDPropertyDefinition g_generatorProperties[] = {Setting("period", new VELDPropertyValue(VELDInt64(1000)), "us"),
                                                  Setting("count", new VELDPropertyValue(VELDInt64(0))),
                                                  VELDPropertyDefinition()};
VELDComponentDefinition g_generator =
    Define<Generator>("Generator", "1.0.0", 0, nullptr, kAll, g_generatorOutputs, g_generatorProperties);

class Counter : public VELDModel<Counter> {
public:
    using VELDModel::VELDModel;

    void Dynamic() override
    {
        int reader = static_cast<int>(GetIntegerProperty("reader"));
        NewInput(reader < 0 ? 0 : reader, "iValue");
    }

    void Birth() override { m_last = 0; }

    void Core() override
    {
        VELDIOElt* element = StartReading(Input(0));
        if (!element) return;
        const VELDInt64 value = *element->Integer32(0);
        StopReading(Input(0));
        Count("received", 1);
        if (value > m_last + 1) Count("gaps", 1);
        m_last = value;
        DirectSet(Property("last"), value);
        if (VELDInt64 delay = GetIntegerProperty("delay")) Rest(static_cast<long>(delay));
    }

private:
    void Count(const char* name, VELDInt64 n) { DirectSet(Property(name), GetIntegerProperty(name) + n); }

    VELDInt64 m_last = 0;
};

// One record per reader type: a new reader type is a new input.
VELDInputDefinition g_counterInputs[] = {IntegerInput("iFifo", VELD::FifoReader),
                                         IntegerInput("iNeverSkipping", VELD::NeverSkippingReader),
                                         IntegerInput("iLastOrNext", VELD::LastOrNextReader),
                                         IntegerInput("iWait4Next", VELD::Wait4NextReader),
                                         IntegerInput("iSampling", VELD::SamplingReader),
                                         kNoInput};
VELDPropertyDefinition g_counterProperties[] = {
    Setting("reader",
            new VELDPropertyValue("FifoReader|NeverSkippingReader|LastOrNextReader|Wait4NextReader|SamplingReader", 0)),
    Setting("delay", new VELDPropertyValue(VELDInt64(0)), "us"),
    Figure("received"),
    Figure("last"),
    Figure("gaps"),
    VELDPropertyDefinition()};
VELDActionDefinition g_counterActions[] = {
    VELDActionDefinition("renameAfterUpstream",
                         new VELDActionFunction(&VELDComponent::ActionRenameAfterUpstreamComponent), true),
    VELDActionDefinition()};
VELDComponentDefinition g_counter =
    Define<Counter>("Counter", "1.1.0", 0, g_counterInputs, 0, nullptr, g_counterProperties, g_counterActions);

class Merger : public VELDModel<Merger> {
public:
    using VELDModel::VELDModel;

    void Dynamic() override
    {
        for (VELDInt64 i = 0; i < GetIntegerProperty("inputs"); ++i) NewInput(0, ("i" + std::to_string(i)).c_str());
    }

    void Core() override
    {
        VELDInput* inputs[16];
        int n = NbInputs() < 16 ? NbInputs() : 16;
        for (int i = 0; i < n; ++i) inputs[i] = &Input(i);
        int which = -1;
        if (n == 0) {
            Rest(1000);
        } else if (StartReading(n, inputs, &which)) {
            DirectSet(Property("received"), GetIntegerProperty("received") + 1);
        }
    }
};

VELDInputDefinition g_mergerInputs[] = {IntegerInput("iIn", VELD::FifoReader), kNoInput};
VELDPropertyDefinition g_mergerProperties[] = {Setting("inputs", new VELDPropertyValue(VELDInt64(2))),
                                               Figure("received"), VELDPropertyDefinition()};
VELDComponentDefinition g_merger = Define<Merger>("Merger", "1.0.0", 0, g_mergerInputs, 0, nullptr, g_mergerProperties);

class Labelled : public VELDModel<Labelled> {
public:
    using VELDModel::VELDModel;

    void Core() override { Rest(1000); }
};

VELDOutputDefinition g_labelledOutputs[] = {VELDOutputDefinition{"oLevel", 0, VELDTypeInfo(VELD::Float), 1, 16, 1, 1},
                                            kNoOutput};
VELDPropertyDefinition g_labelledProperties[] = {
    VELDPropertyDefinition("label", new VELDPropertyValue(""), nullptr, true, false, false, false),
    Setting("gain", new VELDPropertyValue(VELDFloat64(1.0))), Setting("enabled", new VELDPropertyValue(true)),
    VELDPropertyDefinition()};
VELDComponentDefinition g_labelled =
    Define<Labelled>("Labelled", "1.0.0", 0, nullptr, kAll, g_labelledOutputs, g_labelledProperties);

class Stubborn : public VELDModel<Stubborn> {
public:
    using VELDModel::VELDModel;

    void Core() override
    {
        if (VELDInt64 refusal = GetIntegerProperty("refusal")) {
            // Deaf to the die event, as a bugged model would be, and says so.
            DirectSet(Property("deaf"), VELDInt64(1));
            while (!IsDying()) VELD::Sleep(1000);
            VELD::Sleep(refusal);
        }
        Rest(1000);
    }
};

VELDPropertyDefinition g_stubbornProperties[] = {Setting("refusal", new VELDPropertyValue(VELDInt64(0)), "us"),
                                                 Figure("deaf"), VELDPropertyDefinition()};
VELDComponentDefinition g_stubborn =
    Define<Stubborn>("Stubborn", "1.0.0", 0, nullptr, 0, nullptr, g_stubbornProperties);

class Thrower : public VELDModel<Thrower> {
public:
    using VELDModel::VELDModel;

    void Birth() override { ThrowIf("birth"); }
    void Core() override
    {
        ThrowIf("core");
        Rest(1000);
    }
    void Death() override { ThrowIf("death"); }

private:
    void ThrowIf(const char* where)
    {
        if (std::string(GetStringProperty("where").Beginning()) == where)
            throw std::runtime_error(std::string("thrown on purpose in ") + where);
    }
};

VELDPropertyDefinition g_throwerProperties[] = {Setting("where", new VELDPropertyValue("core|birth|death", 0)),
                                                VELDPropertyDefinition()};
VELDComponentDefinition g_thrower = Define<Thrower>("Thrower", "1.0.0", 0, nullptr, 0, nullptr, g_throwerProperties);

}  // namespace

VELD_DECLARE_MODEL(Generator, g_generator, "Generator", "1.0.0");
VELD_DECLARE_MODEL(Counter, g_counter, "Counter", "1.1.0");
VELD_DECLARE_MODEL(Merger, g_merger, "Merger", "1.0.0");
VELD_DECLARE_MODEL(Labelled, g_labelled, "Labelled", "1.0.0");
VELD_DECLARE_MODEL(Stubborn, g_stubborn, "Stubborn", "1.0.0");
VELD_DECLARE_MODEL(Thrower, g_thrower, "Thrower", "1.0.0");
