// The module's half of writing: what happens around the FIFO when a module
// takes an element of one of its outputs and gives it back. VELDModule
// forwards its StartWriting, StopWriting, IsFIFOEmpty, IsFIFOFull and
// Wait4Handshake here with its own context, so that anything with a death
// event, a state and an error path can write the same way.
//
// Writing allocates nothing: the element is a slot of the ring, the
// timestamps are resolved in place, and only a failure builds a message.
#ifndef VELD_OUTPUT_WRITING_H
#define VELD_OUTPUT_WRITING_H

#include "veld_types.h"

class VELDIOElt;
class VELDOutput;
class VELDOutputImplementation;
struct VELDModuleContext;

class VELDOutputWriting {
public:
    // The next element of `output` to fill, with its timestamp and time of
    // issue at 0. Throws VELD::ModuleDied when the module is dying or dies
    // while the writer waits for a never-skipping reader; any other failure
    // of the FIFO goes through the module's error ("Failed to start writing
    // on <output>"), which throws. Null only when that error returns, or when
    // the host cancelled a blocked writer.
    static VELDIOElt* StartWriting(const VELDModuleContext& module, VELDOutput& output);
    // The same with the element's timestamp set; 0 means none.
    static VELDIOElt* StartWriting(const VELDModuleContext& module, VELDOutput& output, VELDTimestamp timestamp);
    // Gives the element back: checks its size, resolves its timestamps,
    // publishes it (or frees it when `discard`), then runs the sequential
    // readers of the output on this thread.
    static void StopWriting(const VELDModuleContext& module, VELDIOElt* element, bool discard);
    // Calls the module of each sequential reader of `output`, and tells the
    // kernel when that changed the module's state.
    static void CallSequentialComponents(VELDOutputImplementation& output);

    // True when no element waits for a FIFO reader and none is held.
    static bool IsFIFOEmpty(VELDOutput& output);
    // True when the writer's next element would overwrite unread data.
    static bool IsFIFOFull(VELDOutput& output);
    // Waits until the FIFO readers have read all there is, or the module
    // dies (VELD::ModuleDied): a writer paces itself on its readers.
    static void Wait4Handshake(const VELDModuleContext& module, VELDOutput& output);

    // The timestamp that `output` publishes for an element stamped
    // `timestamp` and issued at `timeOfIssue`, with the history updated. A
    // periodic output publishes the least-squares line through its last 30
    // timestamps, never running backwards.
    static VELDTimestamp ResolveTimestamp(VELDOutputImplementation& output, VELDTimestamp timestamp,
                                          VELDTimestamp timeOfIssue);
};

#endif
