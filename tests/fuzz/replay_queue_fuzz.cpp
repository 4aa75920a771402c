// The replay queue of the simulated bus libraries, the block in which
// frames wait back to back and wrap round: driven by arbitrary pushes and
// pops, it gives back every frame it took, in order and unchanged, and
// refuses one only when it is really full.
#include <cstddef>
#include <cstdint>
#include <deque>
#include <vector>

#include "replay_engine.h"

namespace {

const size_t kLargestFootprint = nxsim::RecordQueue::Footprint(79);

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size < 1)
        return 0;
    const size_t capacity = 64 + 8 * (data[0] % 64);
    nxsim::RecordQueue queue(capacity);
    std::deque<std::vector<uint8_t>> model;
    size_t modelBytes = 0;
    uint64_t stamp = 0;
    for (size_t i = 1; i < size; ++i) {
        const uint8_t op = data[i];
        if (op < 160) {  // push a payload of up to 79 bytes
            std::vector<uint8_t> payload(op % 80, static_cast<uint8_t>(i));
            const bool end = op % 7 == 0;
            const size_t need = nxsim::RecordQueue::Footprint(static_cast<uint32_t>(payload.size()));
            const bool taken = queue.Push(++stamp, end, payload.data(), static_cast<uint32_t>(payload.size()));
            if (taken) {
                payload.push_back(end ? 1 : 0);
                model.push_back(payload);
                modelBytes += need;
            } else if ((model.empty() && need <= capacity) || modelBytes + kLargestFootprint + 2 * need <= capacity) {
                // Refused with room for it twice over besides the one gap a
                // wrap leaves (no larger than a frame): one of the two free
                // stretches would have held it.
                __builtin_trap();
            }
        } else if (op < 250) {
            if (model.empty())
                continue;
            const nxsim::RecordQueue::Entry e = queue.Front();
            const std::vector<uint8_t>& want = model.front();
            if (e.size != want.size() - 1 || e.endOfStream != (want.back() == 1))
                __builtin_trap();
            for (uint32_t b = 0; b < e.size; ++b)
                if (e.payload[b] != want[b])
                    __builtin_trap();
            queue.Pop();
            modelBytes -= nxsim::RecordQueue::Footprint(e.size);
            model.pop_front();
        } else {
            queue.Clear();
            model.clear();
            modelBytes = 0;
        }
        if (queue.Count() != model.size())
            __builtin_trap();
    }
    return 0;
}
