// Serialized elements from arbitrary bytes: read into a new element that
// allocates its payload, into that element once more (its own blocks now),
// and into a ring-like element of 16 integers; what was read is written
// again. Nothing may crash or touch a byte outside its block.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "veld_io_elt_impl.h"

namespace {

// Far above any seed; keeps one input's allocation within the fuzzer's
// memory limit (a mesh takes 56 bytes an item).
const std::int32_t kMaxItems = 1 << 20;

void WriteAgain(VELDIOEltImplementation& element)
{
    const unsigned int size = element.Serialize(nullptr, 0);
    if (size == 4294967295u) return;
    // Room for the whole buffer, which a matrix or a mesh writes.
    std::vector<unsigned char> block(static_cast<std::size_t>(size) + element.IOEltBufferSizeInBytes(nullptr));
    const unsigned int written = element.Serialize(block.data(), static_cast<unsigned int>(block.size()));
    if (written != 4294967295u && written > block.size()) __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    // The block alone, so that a read past its end is seen.
    std::vector<std::uint8_t> source(data, data + size);
    const void* bytes = source.empty() ? nullptr : source.data();

    std::int32_t items = 0;
    if (size >= 8) std::memcpy(&items, data + 4, 4);
    if (items <= kMaxItems) {
        VELDIOEltImplementation fresh;
        if (fresh.Deserialize(bytes, size, true) == 0) {
            WriteAgain(fresh);
            fresh.Deserialize(bytes, size, false);
            WriteAgain(fresh);
        }
    }

    alignas(16) std::int32_t ring[16] = {};
    VELDIOEltImplementation slot;
    slot.type.value = VELD::Integer32 | VELD::VectorFlag;
    slot.data = ring;
    slot.bufferSize = 16;
    if (slot.Deserialize(bytes, size, false) == 0) WriteAgain(slot);
    slot.data = nullptr;
    return 0;
}
