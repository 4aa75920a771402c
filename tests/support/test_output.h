// Outputs for the data-plane tests: a definition in one call.
#ifndef VELDOR_TESTS_TEST_OUTPUT_H
#define VELDOR_TESTS_TEST_OUTPUT_H

#include "Engine.h"
#include "quiet_engine.h"
#include "veld_definitions.h"

inline VELDOutputDefinition OutputDefinition(VELDTypeInfoValue type, int size, int fifoSize, int subsampling = 1)
{
    VELDOutputDefinition definition = {"o", 0, VELDTypeInfo(type), size, fifoSize, subsampling, 0};
    return definition;
}

// What bench/bench_fifo calls it.
inline veldor::EngineOptions QuietEngine() { return Quiet(); }

#endif
