// The entry point of a package and the frame around the kernel object, as a
// host sees them.
#include <gtest/gtest.h>

#include <dlfcn.h>

#include <tuple>

#include "Engine.h"
#include "quiet_engine.h"
#include "veld.h"
#include "veld_definitions.h"
#include "veld_pck.h"
#include "veld_private.h"

namespace {

// Instantiates the probe model; the probe reports through the kernel that
// the package holds.
void Instantiate(VELDGetModulesDefStructFunction list, const char* name)
{
    void* table[1] = {};
    ASSERT_EQ(list("VELDComponent", table, 1), 1u);
    VELDComponentDefinition* definition = static_cast<VELDComponentDefinition*>(table[0]);
    definition->instFunct(name, *definition);
}

}  // namespace

// One load of the package serves the whole sequence: a package keeps its
// kernel for its life.
TEST(PackageEntry, VersionCheckFirstKernelWinsAndRegistrationRunsOnce)
{
    void* handle = dlopen(VELDOR_PROBE_PACKAGE, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(handle, nullptr) << dlerror();
    auto init = reinterpret_cast<VELDPckInitFunction>(dlsym(handle, "VELDPckInit"));
    auto list = reinterpret_cast<VELDGetModulesDefStructFunction>(dlsym(handle, "VELDGetModulesDefStruct"));
    ASSERT_TRUE(init && list);
    veldor::Engine first(Quiet()), second(Quiet());
    // A wrong version is refused and leaves the package without a kernel.
    EXPECT_EQ(init(&second, 0x80537), 0);
    EXPECT_EQ(init(&second, 0), 0);
    Instantiate(list, "before");
    EXPECT_FALSE(second.GetConsole().Contains("probe before"));
    EXPECT_EQ(init(&first, 0x80538), 4);
    Instantiate(list, "one");
    EXPECT_TRUE(first.GetConsole().Contains("External : probe one registered 1", VELD::Info));
    // A second kernel is ignored, and registration does not run again.
    EXPECT_EQ(init(&second, 0x80538), 4);
    Instantiate(list, "two");
    EXPECT_TRUE(first.GetConsole().Contains("External : probe two registered 1"));
    EXPECT_FALSE(second.GetConsole().Contains("probe two"));
}

TEST(PackageEntry, ExitRunsEachStepOnceAndClearsTheKernel)
{
    veldor::Engine engine(Quiet());
    ASSERT_EQ(VELDPrivate::kernel, &engine);
    for (int i = 0; i < 2; ++i) {  // the second has nothing left to do
        VELD::Exit();
        EXPECT_EQ(std::make_tuple(engine.PrepareExitCount(), engine.FinishExitCount(), VELDPrivate::kernel),
                  std::make_tuple(1, 1, nullptr));
    }
}

TEST(PackageEntry, ReportWrappersAddTheirPrefixes)
{
    veldor::Engine engine(Quiet());
    VELD::Report("plain", VELD::Warning, 0);
    VELD::ReportInfo("info", 0);
    VELD::ReportWarning("warn", 0);
    VELD::ReportError(nullptr, 0);
    std::vector<std::tuple<std::string, int, bool>> reports;
    for (const veldor::ReportRecord& r : engine.GetConsole().Captured()) reports.emplace_back(r.text, r.level, r.fromKernel);
    EXPECT_EQ(reports, (std::vector<std::tuple<std::string, int, bool>>{{"External report : plain", VELD::Warning, false},
                                                                          {"External : info", VELD::Info, false},
                                                                          {"External : warn", VELD::Warning, false},
                                                                          {"External : ", VELD::Error, false}}));
    try {
        VELDPrivate::KernelError("broken", 1);
        FAIL() << "KernelError returned";
    } catch (int code) {
        EXPECT_EQ(code, VELD::ErrorException);
    }
    const veldor::ReportRecord last = engine.GetConsole().Captured().back();
    EXPECT_EQ(std::make_tuple(last.text, last.level, last.fromKernel), std::make_tuple("broken", VELD::Error, true));
}

TEST(PackageEntry, ForwardPckInitToLibrarySharesTheKernel)
{
    veldor::Engine engine(Quiet());
    int result = 0;
    VELDDynamicLoader closed;
    EXPECT_FALSE(VELD::ForwardPckInitToLibrary(closed, &result));
    EXPECT_EQ(result, 0x7FFFFFFF);
    EXPECT_TRUE(engine.GetConsole().Contains("VELD::ForwardPckInitToLibrary: Dynamic library is not loaded"));
    VELDDynamicLoader notAPackage;
    ASSERT_TRUE(notAPackage.Open("libm.so.6"));
    EXPECT_FALSE(VELD::ForwardPckInitToLibrary(notAPackage, nullptr));
    EXPECT_TRUE(engine.GetConsole().Contains("Failed to load 'VELDPckInit' from the dynamic library"));
    EXPECT_EQ(notAPackage.LoadSymbol("VELDPckInit"), nullptr);
    EXPECT_NE(std::string(notAPackage.GetErrorMessage()), "");
    EXPECT_TRUE(notAPackage.Close());
    VELDDynamicLoader probe;
    ASSERT_TRUE(probe.Open(VELDOR_PROBE_PACKAGE)) << probe.GetErrorMessage();
    EXPECT_TRUE(VELD::ForwardPckInitToLibrary(probe, &result));
    EXPECT_EQ(result, 4);
    EXPECT_TRUE(probe.Close());
    EXPECT_TRUE(probe.Close());  // nothing open: true
    VELDDynamicLoader missing;
    EXPECT_FALSE(missing.Open("/nonexistent/library.so"));
    EXPECT_NE(std::string(missing.GetErrorMessage()), "");
}
