// The options of an engine that prints nothing and captures every report.
#ifndef VELDOR_TESTS_QUIET_ENGINE_H
#define VELDOR_TESTS_QUIET_ENGINE_H

#include "Engine.h"

inline veldor::EngineOptions Quiet()
{
    veldor::EngineOptions options;
    options.printReports = false;
    return options;
}

#endif
