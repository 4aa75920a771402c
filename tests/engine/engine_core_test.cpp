// The engine's first services: reports, its own properties, the global
// property look-ups, the symbol registry and the system clock.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "Engine.h"
#include "quiet_engine.h"
#include "veld.h"
#include "veld_action.h"
#include "veld_private.h"
#include "veld_property_impl.h"

namespace {

// A property of some module, as the engine sees it through its interface.
struct FakeProperty : VELDPropertyImplementation {
    explicit FakeProperty(const char* name)
    {
        m_name = name;
        m_owner = reinterpret_cast<VELDModule*>(this);
    }
};

struct FakeAction : VELDAction {
    explicit FakeAction(const char* name) : name(name) {}
    void DoIt(const char*) override {}
    const char* Name() override { return name; }
    const char* ShortName() override { return name; }
    const char* name;
};

}  // namespace

TEST(EngineReports, PrintWithTheLevelCaptureEverythingAndCountByModule)
{
    veldor::Engine engine;
    std::FILE* out = std::tmpfile();
    ASSERT_NE(out, nullptr);
    engine.GetConsole().SetStream(out);
    VELDPrivate::Report("dropped at verbosity 2", VELD::Info, 2, true);
    VELDPrivate::Report("kept", VELD::Info, 0, true);
    VELDPrivate::Report("always printed", VELD::Warning, 9, false);
    VELDPrivate::Report("failure", VELD::Error, 3, false);
    std::rewind(out);
    char text[512] = {};
    const size_t n = std::fread(text, 1, sizeof text - 1, out);
    std::fclose(out);
    engine.GetConsole().SetStream(stderr);
    EXPECT_EQ(std::string(text, n), "info: kept\nwarning: always printed\nerror: failure\n");
    EXPECT_EQ(engine.GetConsole().Captured().size(), 4u);
    EXPECT_TRUE(engine.GetConsole().Contains("dropped", VELD::Info));

    engine.GetConsole().SetPrinting(false);
    engine.GetConsole().SetCapture(false);  // counted all the same
    for (const char* text : {"component monitor0: Too many messages", "component monitor0: again",
                             "module Engine: a setting", "External : no module", "component : no name"})
        VELDPrivate::Report(text, VELD::Warning, 0, false);
    VELDPrivate::Report("component monitor0: broken", VELD::Error, 0, false);
    VELDPrivate::Report("component monitor1: the kernel's words", VELD::Error, 0, true);
    const veldor::ReportCounts monitor = engine.GetConsole().CountsOf("monitor0");
    EXPECT_EQ(std::vector<size_t>({monitor.Warnings(), monitor.Errors(), monitor.Infos()}),
              std::vector<size_t>({2, 1, 0}));
    EXPECT_EQ(engine.GetConsole().CountsOf("Engine").Warnings(), 1u);
    EXPECT_EQ(engine.GetConsole().CountsOf("monitor1").Errors(), 0u);  // the kernel speaks for no module
    EXPECT_EQ(engine.GetConsole().AllCounts().size(), 2u);
}

// The engine's settings are properties of its module "Engine", read by
// full name like those of any module and written from text.
TEST(EngineProperties, DefaultsUserSettingsAndLookUps)
{
    veldor::Engine engine(Quiet());
    bool ok = false;
    EXPECT_EQ(VELD::GetIntegerProperty("Engine.shutdownTimeout", &ok), 10000000);
    EXPECT_TRUE(ok);
    EXPECT_FALSE(VELD::GetBoolProperty("Engine.sequentialStart", &ok));
    EXPECT_TRUE(ok);
    EXPECT_EQ(std::string(VELD::GetGlobalConfigValue("Engine.version").Beginning()), "4.10.0");
    VELDSymbol* time = VELDPrivate::FindSymbol("Engine.time");
    ASSERT_NE(time, nullptr);
    EXPECT_EQ(time->module, &engine.Module());
    EXPECT_TRUE(engine.Module().HasAction("refreshInputProperties"));

    veldor::Diagram& diagram = engine.Graph();
    std::string error;
    EXPECT_TRUE(diagram.SetProperty("Engine.shutdownTimeout", "-1", false, &error)) << error;
    EXPECT_EQ(VELD::GetIntegerProperty("Engine.shutdownTimeout", nullptr), -1);
    EXPECT_EQ(engine.Module().ShutdownTimeout(), 10000000);  // negative: the default
    EXPECT_TRUE(diagram.SetProperty("Engine.sequentialStart", "true", false, &error));
    EXPECT_TRUE(VELD::GetBoolProperty("Engine.sequentialStart", nullptr));
    // The speed is the clock's, both ways; the time is the clock's and
    // can't be written.
    EXPECT_TRUE(diagram.SetProperty("Engine.speed", "2000", false, &error));
    EXPECT_EQ(engine.Clock().Speed(), 2000);
    engine.SetTimeSpeed(500);
    EXPECT_EQ(VELD::GetIntegerProperty("Engine.speed", nullptr), 500);
    engine.SetTimeSpeed(0);
    engine.SetCurrentTime(123456789);
    EXPECT_EQ(VELD::GetIntegerProperty("Engine.time", nullptr), 123456789);
    EXPECT_FALSE(diagram.SetProperty("Engine.time", "5", false, &error));
    EXPECT_EQ(error, "property Engine.time: it is read-only");
    EXPECT_FALSE(diagram.SetProperty("Engine.sequentialStart", "yes", false, &error));
    // The other refusals of a value's text: graph/script_test, in one table.
    // A look-up of the wrong type or of an unknown name says so.
    VELD::GetFloatProperty("Engine.shutdownTimeout", &ok);
    EXPECT_FALSE(ok);
    VELD::GetBoolProperty("nobody.nothing", &ok);
    EXPECT_FALSE(ok);
}

TEST(EngineSymbols, RefuseAFullNameThatExists)
{
    veldor::Engine engine(Quiet());
    FakeProperty speed("gen.speed"), again("gen.speed");
    FakeAction action("gen.speed");
    EXPECT_TRUE(engine.RegisterProperty(&speed));
    EXPECT_FALSE(engine.RegisterProperty(&again));
    EXPECT_FALSE(engine.RegisterAction(&action));  // one namespace for all kinds
    EXPECT_FALSE(engine.RegisterProperty(nullptr));
    VELDSymbol* symbol = VELDPrivate::FindSymbol("gen.speed");
    ASSERT_NE(symbol, nullptr);
    EXPECT_STREQ(symbol->name, "gen.speed");
    EXPECT_EQ(symbol->kind, VELDSymbol::PropertySymbol);
    EXPECT_EQ(symbol->module, speed.Owner());
    EXPECT_EQ(VELD::Property("gen.speed"), &speed);

    VELDPrivate::LockSymbols();
    VELDPrivate::UnregisterSymbol("gen.speed");
    VELDPrivate::UnlockSymbols();
    EXPECT_EQ(VELD::Property("gen.speed"), nullptr);
    EXPECT_TRUE(engine.RegisterAction(&action));
    EXPECT_EQ(VELD::Property("gen.speed"), nullptr);  // an action is not a property
    VELDPrivate::UnregisterSymbol("never.registered");
}

// What a look-up found stays while the symbols are locked: removal waits.
// Registering does not, since a module registers under its own locks.
TEST(EngineSymbols, LockSymbolsHoldsRemovalOff)
{
    veldor::Engine engine(Quiet());
    FakeProperty p("m.p"), q("m.q");
    ASSERT_TRUE(engine.RegisterProperty(&p));
    VELDPrivate::LockSymbols();
    std::atomic<bool> removed(false);
    std::thread other([&] {
        VELDPrivate::UnregisterSymbol("m.p");
        removed = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_FALSE(removed.load());
    EXPECT_NE(VELDPrivate::FindSymbol("m.p"), nullptr);
    EXPECT_TRUE(engine.RegisterProperty(&q));
    VELDPrivate::UnlockSymbols();
    other.join();
    EXPECT_EQ(VELDPrivate::FindSymbol("m.p"), nullptr);
}

TEST(EngineState, CheckLevelSleepAndUnsupportedOperations)
{
    veldor::EngineOptions options = Quiet();
    options.checkLevel = 2;
    veldor::Engine engine(options);
    EXPECT_EQ(VELDPrivate::CheckLevel(), 2);
    const VELDTimestamp a = VELD::GetSystemAccurateTiming();
    VELD::Sleep(2000);
    const VELDTimestamp slept = VELD::GetSystemAccurateTiming() - a;
    EXPECT_GE(slept, 2000);
    EXPECT_LT(slept, 5000000);
    EXPECT_FALSE(VELD::Replay("file"));
    EXPECT_FALSE(VELD::Replay("file"));  // said once
    EXPECT_EQ(engine.GetConsole().CountContaining("Replay is not offered by this engine"), 1u);
    EXPECT_TRUE(std::string(VELD::About()).find("4.10") != std::string::npos);
}
