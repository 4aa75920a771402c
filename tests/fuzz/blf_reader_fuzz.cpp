// The BlfReader on arbitrary bytes (see LogReaderFuzz.h).
#include "LogReaderFuzz.h"
#include "can_log/BlfReader.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    return FuzzLogReader<veldor::canlog::BlfReader>(data, size);
}
