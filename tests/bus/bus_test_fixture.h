// What the bus tests share: an engine that captures reports, the library
// double installed for the test's duration, and short ways to make settings
// and wrappers.
#ifndef BUS_TEST_FIXTURE_H
#define BUS_TEST_FIXTURE_H

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "Engine.h"
#include "FakeCanLibrary.h"
#include "NxCanApiWrapper.h"
#include "veld_constants.h"

class BusTest : public ::testing::Test {
protected:
    BusTest() : engine(Quiet()) {}

    static veldor::EngineOptions Quiet()
    {
        veldor::EngineOptions options;
        options.printReports = false;
        return options;
    }

    nxtest::FakeCanLibrary& Fake() { return bus.Fake(); }

    // One real channel "ch1" at the default address.
    void AddChannel(const std::string& identifier = "ch1", std::uint32_t capabilities = 0,
                    const std::string& interfaceName = "PCIe", const std::string& vendor = "Norvex")
    {
        Fake().AddChannel({vendor, interfaceName, "SN-" + identifier, identifier, capabilities});
    }

    static NxCanApiWrapperSettings Monitoring(const std::string& channel = "ch1", bool canFd = false)
    {
        return NxCanApiWrapperSettings("127.0.0.1", channel, canFd, 2000000, 500000, false, false);
    }
    static NxCanApiWrapperSettings Replay(const std::string& channel = "ch1")
    {
        return NxCanApiWrapperSettings("127.0.0.1", channel, false, 1000000, 500000, false, true);
    }

    static std::unique_ptr<NxCanApiWrapper> Make(const NxCanApiWrapperSettings& settings)
    {
        return std::make_unique<NxCanApiWrapper>(settings);
    }
    // A wrapper that went through Initialize successfully.
    std::unique_ptr<NxCanApiWrapper> Ready(const NxCanApiWrapperSettings& settings)
    {
        auto wrapper = Make(settings);
        bool highSpeed = false;
        NxBusError result = wrapper->Initialize(&highSpeed);
        EXPECT_EQ(result.errorCode, 0) << wrapper->GetErrorMessage(result);
        return wrapper;
    }

    // Calls made since the mark.
    void Mark() { mark = Fake().Calls().size(); }
    std::vector<std::string> CallsSinceMark()
    {
        std::vector<std::string> names = Fake().CallNames();
        return std::vector<std::string>(names.begin() + static_cast<std::ptrdiff_t>(mark), names.end());
    }

    bool Reported(const std::string& text) { return engine.GetConsole().Contains(text, VELD::Error); }

    veldor::Engine engine;
    nxtest::ScopedFakeCanLibrary bus;
    std::size_t mark = 0;
};

#endif
