// The CanUtilsLogReader on arbitrary bytes (see LogReaderFuzz.h).
#include "LogReaderFuzz.h"
#include "can_log/CanUtilsLogReader.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    return FuzzLogReader<veldor::canlog::CanUtilsLogReader>(data, size);
}
