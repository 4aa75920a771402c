// An output and the module that writes it, in an engine that prints nothing
// and keeps what it is told of module states: the ground of the data-plane
// tests.
#ifndef VELDOR_TESTS_DATA_OUTPUT_FIXTURE_H
#define VELDOR_TESTS_DATA_OUTPUT_FIXTURE_H

#include <gtest/gtest.h>

#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "Engine.h"
#include "fifo_reading.h"
#include "test_module.h"
#include "test_output.h"
#include "thrown.h"
#include "veld_output_impl.h"
#include "veld_output_writing.h"

class RecordingEngine : public veldor::Engine {
public:
    RecordingEngine() : veldor::Engine(Quiet()) {}
    void ModuleStateChanged(const char* moduleName, int state) override
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        changes.emplace_back(moduleName, state);
    }
    std::vector<std::pair<std::string, int>> changes;

private:
    std::mutex m_mutex;
};

class OutputTest : public ::testing::Test {
protected:
    // An output "m.o" of one item of `type`, its buffers allocated unless
    // `allocate` is false.
    std::unique_ptr<VELDOutputImplementation> New(int fifoSize, int subsampling = 1,
                                                  VELDTypeInfoValue type = VELD::Integer64, bool allocate = true)
    {
        std::unique_ptr<VELDOutputImplementation> made(
            new VELDOutputImplementation("m.o", OutputDefinition(type, 1, fifoSize, subsampling), &module.death));
        if (allocate) made->AllocOutputBuffer(1, true);
        return made;
    }
    VELDOutputImplementation& Make(int fifoSize, int subsampling = 1, VELDTypeInfoValue type = VELD::Integer64,
                                   bool allocate = true)
    {
        output = New(fifoSize, subsampling, type, allocate);
        return *output;
    }
    TestFifo& F() { return *output->monitor; }
    int Reader(int type, int subsampling = 1) { return veldor::FifoReaders::Register(F(), type, subsampling); }
    // The elements of the ring, from its head.
    std::vector<VELDIOEltImplementation*> Elements()
    {
        std::vector<VELDIOEltImplementation*> elements;
        VELDIOMonitor& monitor = *output->Monitor();
        for (VELDListIterator it = monitor.InitBegin(); it.ptr; monitor.InitNext(it))
            elements.push_back(static_cast<VELDIOEltImplementation*>(&monitor[it]));
        return elements;
    }
    bool Reported(const std::string& text) { return engine.GetConsole().Contains(text, VELD::Error); }

    RecordingEngine engine;
    TestModule module;
    std::unique_ptr<VELDOutputImplementation> output;
};

#endif
