// An output: a named endpoint of a component with its FIFO and the one block
// of memory that holds the payload of all its elements. A component prepares
// it once with one call of the allocation family, usually in Birth; from then
// on writing allocates nothing: every payload is carved out of the block at a
// fixed stride.
#ifndef VELD_OUTPUT_IMPL_H
#define VELD_OUTPUT_IMPL_H

#include <atomic>
#include <cstddef>

#include "veld_containers.h"
#include "veld_definitions.h"
#include "veld_io_monitor_impl.h"
#include "veld_output.h"
#include "veld_string.h"

class VELDInput;

// A reader that runs on the writer's thread: an input of a module that may be
// sequential, with what the output needs to call its module after each
// write. The module core fills it in when it connects such an input.
struct VELDSequentialReader {
    VELDInput* input;
    void* module;
    // The module's state mask, read before and after the call.
    const std::atomic<int>* state;
    // True when the module runs on a thread of its own: it is skipped.
    bool (*isThreaded)(void* module);
    // The module's SequentialCore(input).
    void (*sequentialCore)(void* module, VELDInput* input);
    // The module's name, for the kernel's ModuleStateChanged.
    const char* (*name)(void* module);
};

class VELDOutputImplementation : public VELDOutput {
public:
    // `fullName` is "<module>.<short name>"; the FIFO's waits end with
    // `deathEvent`, the death event of the owning module.
    VELDOutputImplementation(const char* fullName, const VELDOutputDefinition& definition, VELDEvent* deathEvent);
    VELDOutputImplementation(const VELDOutputImplementation&) = delete;
    VELDOutputImplementation& operator=(const VELDOutputImplementation&) = delete;
    ~VELDOutputImplementation() override;

    // ---- the allocation family: one call per output, failures are
    // reported and thrown (VELD::ErrorException) ----
    // `items` is the capacity of each element; with `allocate` false the
    // elements get their size but no memory: the component hangs its own on
    // each element's Data().
    void AllocOutputBuffer(int items, bool allocate) override;
    // Headers copied from `model`; with `external` the component hangs its
    // own pixels on them.
    void AllocOutputBufferIplImage(const _IplImage& model, bool external) override;
    void AllocOutputBufferImage(int items, int width, int height, unsigned int coding, unsigned int type,
                                bool external) override;
    void AllocOutputBufferVELDImage(int items, int width, int height, unsigned int coding, unsigned int type,
                                    bool external) override;
    void AllocOutputBufferMatrix(int rows, int columns) override;
    void AllocOutputBufferAudioSignal(const VELDAudioSignal& model) override;

    const char* Name() override { return name; }
    int NbFIFOOverflows() override { return nbFifoOverflows.load(std::memory_order_relaxed); }
    VELDIOMonitor* Monitor() override { return monitor; }
    void MakeShareable() override { definition.shareable = 1; }
    void MakeUnshareable() override { definition.shareable = 0; }
    int IOEltSizeBytes() override { return eltSizeBytes; }
    int NbFreeSlotsInFIFO() override { return monitor ? monitor->NbFreeSlotsInFIFO() : 0; }
    const VELDTypeInfo& Type() override { return definition.type; }
    void SetTypeValue(long value) override { definition.type.value = static_cast<VELDTypeInfoValue>(value); }
    void SetTypeUnit(const char* unit) override { definition.type.SetUnit(unit); }
    void SetUnit(const char* unit) override { definition.type.SetUnit(unit); }
    const char* TypeUnit() override { return definition.type.Unit(); }
    const char* Unit() override { return definition.type.Unit(); }
    void SetTypeName(const char* typeName) override { definition.type.SetName(typeName); }
    const char* TypeName() override { return definition.type.Name(); }

    // The single place where the payload block is taken: fifoSize blocks of
    // `bytesPerElement`.
    void AllocateSharedMemory(std::size_t bytesPerElement);
    // Gives the block back and clears the history; a new allocation may
    // follow.
    void FreeBuffer();
    // Warns when an output of more than one item per element doesn't say
    // that it carries vectors.
    static void CheckVectorFlag(int items, const VELDOutputDefinition& definition);
    // Replaces the module part of the name when it is `oldPrefix`.
    void Rename(const char* oldPrefix, const char* newPrefix);

    // The readers to call on the writer's thread after each write.
    void AddSequentialInput(const VELDSequentialReader& reader);
    bool RemoveSequentialInput(VELDInput* input);

    VELDStackedString<40> name;
    VELDMutex mutex;  // guards sequentialInputs
    VELDIOMonitorImplementation* monitor;
    unsigned char* sharedMemory;
    VELDOutputDefinition definition;
    VELDList<VELDSequentialReader> sequentialInputs;
    // Counted by the kernel's overflow service, from the writer's thread.
    std::atomic<VELDInt32> nbFifoOverflows;
    VELDInt32 bufferSizeItems;  // 0: nothing allocated; -1: an image or audio family
    VELDInt32 eltSizeBytes;
    bool periodic;  // smooth the timestamps of a periodic source
    // Slots 0 to 29: the last timestamps, a ring; 30: the last one published.
    VELDTimestamp timestampHistory[31];
    VELDInt32 timestampIndex;
    // The length of sequentialInputs, for the writer's thread to see
    // without the lock that there is nobody to call.
    std::atomic<VELDInt32> nbSequentialInputs;

private:
    std::size_t sharedMemoryBytes;  // the size of the payload block

    // Sets every element to its empty state with the output's type.
    void PrepareElements();
    // Fails when a buffer is already there.
    void CheckNotInitialized(int verbosity);
    // The memory test after AllocateSharedMemory, for an allocator that
    // returns null without having failed.
    void CheckAllocated();
};

#endif
