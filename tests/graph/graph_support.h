// An engine with the test package loaded from its file, and short ways to
// build a diagram and read the figures that the package's components keep in
// their properties.
#ifndef VELDOR_TESTS_GRAPH_SUPPORT_H
#define VELDOR_TESTS_GRAPH_SUPPORT_H

#include <gtest/gtest.h>

#include <string>

#include "Engine.h"
#include "quiet_engine.h"
#include "scratch.h"

using veldtest::Eventually;

class GraphTest : public ::testing::Test {
protected:
    // A test whose scripts load the package themselves says so.
    explicit GraphTest(bool loadPackage = true) : engine(Quiet())
    {
        EXPECT_TRUE(!loadPackage || engine.LoadPackage(VELDOR_TEST_PACKAGE, &error)) << error;
    }

    // Each step of building and running a diagram, which must succeed.
    void Make(const std::string& model, const std::string& name) { Ok(engine.Graph().Create(model, name, &error)); }
    void Set(const std::string& property, const std::string& value)
    {
        Ok(engine.Graph().SetProperty(property, value, false, &error));
    }
    void Connect(const std::string& output, const std::string& input) { Ok(engine.Graph().Connect(output, input, &error)); }
    void Run() { Ok(engine.Graph().Run(&error)); }
    template <class T>
    void Ok(T done)
    {
        ASSERT_TRUE(done) << error;
    }

    // An integer property by full name, read as a package would.
    long long Figure(const std::string& property)
    {
        bool ok = false;
        long long value = engine.GetIntegerProperty(property.c_str(), &ok);
        EXPECT_TRUE(ok) << property;
        return value;
    }

    veldor::Engine engine;
    std::string error;
};

#endif
