// What the bus tests share: an engine that captures reports, the library
// doubles installed for the test's duration, and short ways to make settings
// and wrappers and to compare their results.
#ifndef BUS_TEST_FIXTURE_H
#define BUS_TEST_FIXTURE_H

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "Engine.h"
#include "quiet_engine.h"
#include "FakeLibrary.h"
#include "NxCanApiWrapper.h"
#include "NxEthApiWrapper.h"
#include "veld_constants.h"

using Calls = std::vector<std::string>;
using Args = std::vector<std::uint64_t>;  // of a logged call

const NxBusErrorSeverity kError = NxBusErrorSeverity::Error;
const NxBusErrorSeverity kWarning = NxBusErrorSeverity::Warning;
const NxBusErrorSeverity kNotDefined = NxBusErrorSeverity::NotDefined;

inline bool operator==(const NxBusError& a, const NxBusError& b)
{
    return a.errorCode == b.errorCode && a.functionName == b.functionName && a.severity == b.severity;
}
inline void PrintTo(const NxBusError& e, std::ostream* out)
{
    *out << "{" << e.errorCode << ", \"" << e.functionName << "\", severity " << static_cast<int>(e.severity) << "}";
}

// `order` appears within `calls` in that order (other calls between).
inline void ExpectInOrder(const Calls& calls, const Calls& order)
{
    auto at = calls.begin();
    for (const std::string& name : order) {
        at = std::find(at, calls.end(), name);
        ASSERT_NE(at, calls.end()) << name << " missing or out of order in " << testing::PrintToString(calls);
    }
}

// What a call throws, as text.
template <class F>
std::string Thrown(F f)
{
    try {
        f();
    } catch (const std::exception& e) {
        return e.what();
    }
    return "no exception";
}

// An engine that captures what is reported; the calls made, in the log that
// all doubles share; wrappers made, and made ready.
class EngineTest : public ::testing::Test {
protected:
    EngineTest() : engine(Quiet()) {}

    bool Reported(const std::string& text) { return engine.GetConsole().Contains(text, VELD::Error); }
    // The library calls that `action` makes.
    static Calls CallsDuring(const std::function<void()>& action)
    {
        const std::size_t before = nxtest::FakeCanLibrary::Instance().Calls().size();
        action();
        const Calls names = nxtest::FakeCanLibrary::Instance().CallNames();
        return Calls(names.begin() + static_cast<std::ptrdiff_t>(before), names.end());
    }
    static auto Make(const NxCanApiWrapperSettings& settings) { return std::make_unique<NxCanApiWrapper>(settings); }
    static auto Make(const NxEthApiWrapperSettings& settings) { return std::make_unique<NxEthApiWrapper>(settings); }
    template <class Wrapper>
    static NxBusError Init(Wrapper& wrapper, bool* highSpeed = nullptr)
    {
        bool ignored = false;
        return wrapper.Initialize(highSpeed ? highSpeed : &ignored);
    }
    // A wrapper that went through Initialize successfully.
    template <class Settings>
    static auto Ready(const Settings& settings)
    {
        auto wrapper = Make(settings);
        NxBusError result = Init(*wrapper);
        EXPECT_EQ(result.errorCode, 0) << wrapper->GetErrorMessage(result);
        return wrapper;
    }

    veldor::Engine engine;
};

class BusTest : public EngineTest {
protected:
    nxtest::FakeCanLibrary& Fake() { return bus.Fake(); }

    // A channel at the default address.
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

    nxtest::ScopedFakeCanLibrary bus;
};

// The Ethernet twin.
class EthBusTest : public EngineTest {
protected:
    nxtest::FakeEthLibrary& Eth() { return bus.Eth(); }
    nxtest::FakeDrPreLibrary& Stage() { return bus.Stage(); }

    void AddInterface(const std::string& identifier = "eth1", std::uint32_t capabilities = 0,
                      const std::string& provider = "Norvex")
    {
        Eth().AddChannel({provider, "veth", "SN-" + identifier, identifier, capabilities});
    }
    static NxEthApiWrapperSettings Monitoring(const std::string& identifier = "eth1")
    {
        return NxEthApiWrapperSettings("127.0.0.1", identifier, false, false);
    }
    static NxEthApiWrapperSettings Replay(const std::string& identifier = "eth1")
    {
        NxEthApiWrapperSettings settings("127.0.0.1", identifier, false, true);
        settings.SetProtocolType(NXDRPP_UDP);
        return settings;
    }

    nxtest::ScopedFakeEthLibrary bus;
};

#endif
