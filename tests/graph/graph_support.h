// An engine with the test package loaded from its file, and short ways to
// build a diagram and read the figures that the package's components keep in
// their properties.
#ifndef VELDOR_TESTS_GRAPH_SUPPORT_H
#define VELDOR_TESTS_GRAPH_SUPPORT_H

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <string>
#include <thread>

#include "Engine.h"
#include "quiet_engine.h"
#include "scratch.h"

using veldtest::Eventually;

class GraphTest : public ::testing::Test {
protected:
    // A test whose scripts load the package themselves says so.
    explicit GraphTest(bool loadPackage = true) : engine(Quiet())
    {
        std::string error;
        if (loadPackage) {
            EXPECT_TRUE(engine.LoadPackage(VELDOR_TEST_PACKAGE, &error)) << error;
        }
    }

    void Make(const std::string& model, const std::string& name)
    {
        std::string error;
        ASSERT_NE(engine.Graph().Create(model, name, &error), nullptr) << error;
    }

    void Set(const std::string& property, const std::string& value)
    {
        std::string error;
        ASSERT_TRUE(engine.Graph().SetProperty(property, value, false, &error)) << error;
    }

    void Connect(const std::string& output, const std::string& input)
    {
        std::string error;
        ASSERT_TRUE(engine.Graph().Connect(output, input, &error)) << error;
    }

    void Run()
    {
        std::string error;
        ASSERT_TRUE(engine.Graph().Run(&error)) << error;
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
};

#endif
