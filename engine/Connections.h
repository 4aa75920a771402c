// The connections of the graph: which output feeds which input. The engine
// keeps them here so that it can list them and detach everything on
// shutdown.
//
// Rules:
//   - An input accepts an output when its type filter matches the output's
//     type; a mismatch is refused with a report naming both.
//   - An input holds one connection. Attach refuses an input that another
//     output feeds (detach it first); Replace detaches the old connection
//     and attaches the new one.
//   - An output feeds at most 32 inputs: its FIFO has 32 reader numbers.
//
// Attaching registers a reader of the input's reader type and subsampling on
// the output's FIFO and hands the input its FIFO through the input's
// reconnection protocol, so that a reader blocked in a read steps aside
// first; it also records the input on the output as a sequential reader, so
// that a sequential module runs on the writer's thread. Detaching does the
// same in reverse, and unregisters the reader only once the input stepped
// aside.
//
// Every operation takes the kernel's configuration lock (see Engine) and
// then this object's lock.
#ifndef VELDOR_ENGINE_CONNECTIONS_H
#define VELDOR_ENGINE_CONNECTIONS_H

#include <mutex>
#include <string>
#include <vector>

class VELDInput;
class VELDInputImplementation;
class VELDOutput;
class VELDOutputImplementation;

namespace veldor {

class Console;

class Connections {
public:
    struct Link {
        std::string output;  // full names
        std::string input;
    };

    explicit Connections(Console& console);
    Connections(const Connections&) = delete;
    Connections& operator=(const Connections&) = delete;

    // True when the input is fed by `output` afterwards (also when it
    // already was).
    bool Attach(VELDOutput& output, VELDInput& input);
    // Attach, detaching first whatever fed the input.
    bool Replace(VELDOutput& output, VELDInput& input);
    // False, with a report, when `output` does not feed `input`.
    bool Detach(VELDOutput& output, VELDInput& input);
    // Detaches every connection; returns how many there were.
    int DetachAll();

    std::vector<Link> List();
    bool IsConnected(VELDOutput& output, VELDInput& input);
    int NbConnections();

private:
    struct Connection {
        VELDOutputImplementation* output;
        VELDInputImplementation* input;
    };

    bool AttachLocked(VELDOutputImplementation& output, VELDInputImplementation& input);
    void DetachLocked(size_t index);
    size_t Find(VELDOutputImplementation* output, VELDInputImplementation* input) const;
    void Refuse(const std::string& text);

    Console& m_console;
    std::recursive_mutex m_mutex;
    std::vector<Connection> m_connections;
};

}  // namespace veldor

#endif
