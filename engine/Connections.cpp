#include "Connections.h"

#include "Console.h"
#include "FifoReaders.h"
#include "veld_constants.h"
#include "veld_input_impl.h"
#include "veld_module.h"
#include "veld_output_impl.h"

namespace veldor {

namespace {

const size_t kNone = static_cast<size_t>(-1);

// The record that has the output run a sequential reader's module on the
// writer's thread; a threaded module is passed by at each write.
VELDSequentialReader ReaderRecord(VELDInputImplementation& input)
{
    VELDSequentialReader record{};
    record.input = &input;
    VELDModule* module = input.Owner();
    if (!module) return record;
    record.module = module;
    record.state = &module->m_state;
    record.isThreaded = [](void* m) { return static_cast<VELDModule*>(m)->m_threaded.load(); };
    record.sequentialCore = [](void* m, VELDInput* in) { static_cast<VELDModule*>(m)->SequentialCore(in); };
    record.name = [](void* m) { return static_cast<VELDModule*>(m)->Name(); };
    return record;
}

std::string Named(const char* name) { return name ? name : ""; }

}  // namespace

Connections::Connections(Console& console) : m_console(console) {}

void Connections::Refuse(const std::string& text) { m_console.Report(text.c_str(), VELD::Error, 0, true); }

size_t Connections::Find(VELDOutputImplementation* output, VELDInputImplementation* input) const
{
    for (size_t i = 0; i < m_connections.size(); ++i)
        if (m_connections[i].output == output && m_connections[i].input == input) return i;
    return kNone;
}

bool Connections::Attach(VELDOutput& output, VELDInput& input)
{
    auto& out = static_cast<VELDOutputImplementation&>(output);
    auto& in = static_cast<VELDInputImplementation&>(input);
    std::lock_guard<std::recursive_mutex> lock(m_mutex);
    VELDOutput* current = in.ConnectedOutput();
    if (current == &output) return true;
    if (current) {
        Refuse("Cannot attach " + Named(out.Name()) + " to " + Named(in.Name()) + ": the input is already fed by " +
               Named(current->Name()) + "; detach it first.");
        return false;
    }
    return AttachLocked(out, in);
}

bool Connections::Replace(VELDOutput& output, VELDInput& input)
{
    auto& out = static_cast<VELDOutputImplementation&>(output);
    auto& in = static_cast<VELDInputImplementation&>(input);
    std::lock_guard<std::recursive_mutex> lock(m_mutex);
    if (in.ConnectedOutput() == &output) return true;
    return AttachLocked(out, in);
}

bool Connections::AttachLocked(VELDOutputImplementation& out, VELDInputImplementation& in)
{
    const VELDTypeFilterBase* filter = in.Type();
    if (filter && !VELD::TypeFilter(out.Type(), *filter)) {
        Refuse("Cannot attach " + Named(out.Name()) + " to " + Named(in.Name()) +
               ": the input does not accept the type of the output.");
        return false;
    }
    // An input fed by another output moves: its reader steps aside, leaves
    // the old FIFO and comes back in the new one.
    auto* previous = static_cast<VELDOutputImplementation*>(in.ConnectedOutput());
    const size_t old = previous ? Find(previous, &in) : kNone;
    if (previous) {
        previous->RemoveSequentialInput(&in);
        in.BeginReconnection();
    }
    const int reader = FifoReaders::Register(*out.monitor, in.ReaderType(), in.Subsampling());
    if (reader < 0) {
        if (previous) {
            in.EndReconnection();
            previous->AddSequentialInput(ReaderRecord(in));
        }
        Refuse("Cannot attach " + Named(out.Name()) + " to " + Named(in.Name()) +
               ": the output already feeds 32 inputs.");
        return false;
    }
    if (previous) {
        FifoReaders::Unregister(*previous->monitor, in.readerHandle.load());
        if (old != kNone) m_connections.erase(m_connections.begin() + static_cast<long>(old));
    }
    in.Connect(&out, out.monitor, reader);
    if (previous) in.EndReconnection();
    in.SignalConnectionChanged();
    out.AddSequentialInput(ReaderRecord(in));
    m_connections.push_back(Connection{&out, &in});
    return true;
}

bool Connections::Detach(VELDOutput& output, VELDInput& input)
{
    auto& out = static_cast<VELDOutputImplementation&>(output);
    auto& in = static_cast<VELDInputImplementation&>(input);
    std::lock_guard<std::recursive_mutex> lock(m_mutex);
    const size_t index = Find(&out, &in);
    if (index == kNone) {
        Refuse("Cannot detach " + Named(in.Name()) + " from " + Named(out.Name()) + ": they are not connected.");
        return false;
    }
    DetachLocked(index);
    return true;
}

void Connections::DetachLocked(size_t index)
{
    const Connection connection = m_connections[index];
    m_connections.erase(m_connections.begin() + static_cast<long>(index));
    VELDOutputImplementation& out = *connection.output;
    VELDInputImplementation& in = *connection.input;
    // No write may run the reader's module any more once it steps aside.
    out.RemoveSequentialInput(&in);
    in.BeginReconnection();
    FifoReaders::Unregister(*out.monitor, in.readerHandle.load());
    in.Disconnect();
    in.EndReconnection();
}

int Connections::DetachAll()
{
    std::lock_guard<std::recursive_mutex> lock(m_mutex);
    const int count = static_cast<int>(m_connections.size());
    while (!m_connections.empty()) DetachLocked(m_connections.size() - 1);
    return count;
}

std::vector<Connections::Link> Connections::List()
{
    std::lock_guard<std::recursive_mutex> lock(m_mutex);
    std::vector<Link> links;
    for (const Connection& c : m_connections) links.push_back(Link{Named(c.output->Name()), Named(c.input->Name())});
    return links;
}

bool Connections::IsConnected(VELDOutput& output, VELDInput& input)
{
    std::lock_guard<std::recursive_mutex> lock(m_mutex);
    return Find(static_cast<VELDOutputImplementation*>(&output), static_cast<VELDInputImplementation*>(&input)) !=
           kNone;
}

int Connections::NbConnections()
{
    std::lock_guard<std::recursive_mutex> lock(m_mutex);
    return static_cast<int>(m_connections.size());
}

}  // namespace veldor
