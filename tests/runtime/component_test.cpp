// The lifecycle of components: the main thread's loop, errors, sequential
// components on the writer's thread, dying in every wait, and further
// threads. A component that refuses to die, or that needs a property set
// before it starts: graph/shutdown_test, graph/diagram_test.
#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>

#include "runtime_support.h"
#include "thrown.h"
#include "veld.h"

namespace {

class Lifecycle : public ::testing::Test {
protected:
    Lifecycle() : engine(Quiet())
    {
        setenv("VELDOR_SILENT", "1", 1);
        sourceTables.outputs.push_back(IntegerOutput("oOut"));
        sourceTables.Finish(0, 1, 0, 0);
        sinkTables.inputs.push_back(IntegerInput("iIn"));
        sinkTables.Finish(1, 0, 0, 0);
    }

    bool Dead(VELDComponent& component) { return engine.States().WaitFor(component.Name(), VELD::DeadState, 5000000); }
    bool Reported(const char* text) { return engine.GetConsole().Contains(text); }

    ModelTables sourceTables, sinkTables;
    TestEngine engine;
};

TEST_F(Lifecycle, TheMainThreadRunsBirthCoreAndDeath)
{
    std::atomic<int> births(0), cores(0), deaths(0);
    Probe& component = engine.Make("c", sinkTables);
    component.birth = [&](Probe&) { ++births; };
    component.core = [&](Probe& self) {
        ++cores;
        self.Rest(1000);
    };
    component.death = [&](Probe&) { ++deaths; };
    component.Start();
    EXPECT_TRUE(component.BirthEvent().Wait(5000000) == 0);
    component.Start();  // a living component stays as it is
    while (cores.load() < 3) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    int state = 0;
    EXPECT_TRUE(engine.States().Get("c", &state));
    EXPECT_TRUE(state & VELD::LivingState);
    component.Shutdown();
    EXPECT_TRUE(component.State() & VELD::DeadState);
    EXPECT_EQ(births.load(), 1);
    EXPECT_EQ(deaths.load(), 1);
    EXPECT_TRUE(Reported("Component c is dead."));
    EXPECT_TRUE(engine.Threads().WaitUntilLeft(&component, 5000000));
}

TEST_F(Lifecycle, AnErrorInCoreEndsTheComponentInError)
{
    Probe& component = engine.Make("c", sinkTables);
    component.core = [](Probe& self) { self.Error("gave up", 1, VELDModule::ErrorGeneric); };
    component.death = [](Probe&) { throw "no"; };
    component.Start();
    ASSERT_TRUE(Dead(component));
    EXPECT_TRUE(component.State() & VELD::ErrorState);
    EXPECT_TRUE(Reported("component c: gave up"));
    EXPECT_TRUE(Reported("External : component c died due to an error."));
    EXPECT_TRUE(Reported("c: unhandled exception thrown from Death(). Trying to catch up. The component might crash "
                         "later."));
}

TEST_F(Lifecycle, AStdExceptionIsReportedAsFatal)
{
    Probe& component = engine.Make("c", sinkTables);
    component.core = [](Probe&) { throw std::runtime_error("boom"); };
    component.Start();
    ASSERT_TRUE(Dead(component));
    EXPECT_TRUE(Reported("component c : Fatal error : Unhandled std::exception thrown: boom Trying to catch up but the "
                         "component might crash later."));
}

TEST_F(Lifecycle, DyingEndsEveryWaitWithModuleDied)
{
    Probe& source = engine.Make("src", sourceTables);
    Probe& component = engine.Make("c", sinkTables);
    ASSERT_TRUE(VELD::Attach(source.Output("oOut"), component.Input("iIn")));
    VELDEvent never(false, nullptr);
    VELDIOElt* elts[2];
    VELDInput* inputs[1] = {&component.Input("iIn")};
    int answered = 0;
    VELDEvent* events[1] = {&never};
    const std::function<void(Probe&)> waits[] = {
        [](Probe& self) { self.StartReading(self.Input("iIn")); },
        [&](Probe& self) { self.Wait4Event(&never, VELD::Infinite); },
        [&](Probe& self) { self.Wait4Event(&never, 60000000); },
        [](Probe& self) { self.Rest(60000000); },
        [&](Probe& self) { self.NLastStartReading(self.Input("iIn"), 2, elts); },
        [&](Probe& self) { self.StartReading(1, inputs, &answered, 1, events); },
    };
    for (size_t w = 0; w < std::size(waits); ++w) {
        std::atomic<bool> waiting(false);
        std::atomic<int> result(0);
        component.core = [&](Probe& self) {
            waiting = true;
            result = Thrown([&] { waits[w](self); });
            throw result.load();
        };
        component.Start();
        while (!waiting) std::this_thread::sleep_for(std::chrono::milliseconds(1));
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        component.Shutdown();
        EXPECT_EQ(result, VELD::ModuleDied) << "wait " << w;
        EXPECT_EQ(component.State() & (VELD::DeadState | VELD::ErrorState), VELD::DeadState) << "wait " << w;
    }
}

TEST_F(Lifecycle, ASequentialComponentRunsOnItsWritersThread)
{
    Probe& writer = engine.Make("w", sourceTables);
    ModelTables& tables = engine.NewTables();
    tables.inputs.push_back(IntegerInput("iIn", VELD::FifoReader, 3));
    tables.Finish(1, 0, 0, 0, VELD::Sequential, false);
    Probe& reader = engine.Make("r", tables);
    Seen seen;
    reader.core = [&](Probe& self) {
        if (VELDIOElt* element = self.StartReading(self.Input("iIn"))) seen.Add(ValueOf(element));
    };
    std::atomic<bool> written(false);
    std::thread::id writerThread;
    writer.core = [&](Probe& self) {
        if (!written.exchange(true)) {
            writerThread = std::this_thread::get_id();
            for (int v = 1; v <= 9; ++v) Write(self, self.Output("oOut"), v);
        }
        self.Rest(1000);
    };
    ASSERT_TRUE(VELD::Attach(writer.Output("oOut"), reader.Input("iIn")));
    reader.Start();
    EXPECT_EQ(reader.Property("primaryThreadID").IntegerValue(), 0);
    writer.Start();
    ASSERT_TRUE(seen.WaitFor(3));
    // Subsampling 3: the first two of each three are consumed unseen.
    EXPECT_EQ(seen.Values(), (std::vector<int>{3, 6, 9}));
    for (std::thread::id id : seen.Threads()) EXPECT_EQ(id, writerThread);
    writer.Shutdown();
    reader.Shutdown();
    EXPECT_TRUE(reader.State() & VELD::DeadState);
}

TEST_F(Lifecycle, TheThreadingModelFollowsWhatTheModelAllows)
{
    ModelTables& tables = engine.NewTables();
    tables.Finish(0, 0, 0, 0, VELD::Sequential, true);
    Probe& component = engine.Make("c", tables);
    component.Start();
    EXPECT_TRUE(Reported("Threaded behaviour is not allowed anymore for this component"));
    EXPECT_FALSE(component.Property("threaded").BoolValue());
    component.Shutdown();
    EXPECT_TRUE(component.State() & VELD::DeadState);
}

TEST_F(Lifecycle, FurtherThreadsAreLivesOfTheComponent)
{
    static std::atomic<int> freeRuns(0);
    freeRuns = 0;
    class Worker : public VELDModel<Worker, Probe> {
    public:
        using VELDModel::VELDModel;
        void Loop()
        {
            ++loops;
            Wait4Event(m_dieEvent, VELD::Infinite);
        }
        std::atomic<int> loops{0};
    };
    Worker& component = engine.Make<Worker>("c", sinkTables);
    component.birth = [](Probe& self) {
        Worker& worker = static_cast<Worker&>(self);
        worker.CreateThread(static_cast<VELDThreadFunction>(&Worker::Loop));
        VELDCouple<bool, unsigned long> made = worker.CreateThread([](void*) { ++freeRuns; }, nullptr);
        EXPECT_TRUE(made.first());
        EXPECT_NE(made.second(), 0ul);
    };
    component.Start();
    ASSERT_EQ(component.BirthEvent().Wait(5000000), 0);
    EXPECT_GE(component.NbThreads(), 2);
    component.Shutdown();
    EXPECT_EQ(component.loops.load(), 1);
    EXPECT_EQ(freeRuns.load(), 1);
    EXPECT_EQ(component.NbThreads(), 0);
}

}  // namespace
