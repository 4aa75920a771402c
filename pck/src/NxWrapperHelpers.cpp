#include "NxWrapperHelpers.h"

#include <cstdlib>
#include <memory>
#include <stdexcept>

std::string NxChannelDescription(const std::string& vendor, const std::string& interfaceName,
                                 const std::string& serial)
{
    std::string description = "Vendor: " + vendor + "; Interface: " + interfaceName;
    if (!serial.empty()) description += "; Serial number: " + serial;
    return description;
}

std::string NxStringFormatV(const std::string& format, va_list arguments)
{
    std::size_t size = format.size() * 2;
    const std::size_t kGiveUp = std::size_t(1) << 24;  // only an encoding error grows this far
    for (;;) {
        std::unique_ptr<char[]> block(new char[size + 1]);
        va_list attempt;
        va_copy(attempt, arguments);
        int written = std::vsnprintf(block.get(), size, format.c_str(), attempt);
        va_end(attempt);
        if (written >= 0 && static_cast<std::size_t>(written) < size)
            return std::string(block.get(), static_cast<std::size_t>(written));
        if (written < 0 && size > kGiveUp) return std::string();
        long long grow = static_cast<long long>(written) - static_cast<long long>(size) + 1;
        size += static_cast<std::size_t>(std::llabs(grow));
    }
}

namespace {

std::string Format(const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    std::string text = NxStringFormatV(format, arguments);
    va_end(arguments);
    return text;
}

}  // namespace

std::string NxFunctionText(const std::string& functionName, const std::string& text)
{
    return Format("%s: %s", functionName.c_str(), text.c_str());
}

NxBusErrorSeverity NxLogStartSeverity(std::int32_t code)
{
    return code > 0 ? NxBusErrorSeverity::Error : code < 0 ? NxBusErrorSeverity::Warning : NxBusErrorSeverity::NotDefined;
}

std::uint64_t NxTicksToMicroseconds(std::uint64_t ticks, std::uint64_t coefficient)
{
    if (coefficient == 0)
        throw std::runtime_error("Hardware time resolution is unknown or below one tick per microsecond");
    return ticks / coefficient;
}

bool NxConsumeStaged(std::uint8_t* buffer, std::uint32_t& used, std::uint64_t consumed)
{
    if (used <= consumed) {
        used = 0;
        return true;
    }
    used -= static_cast<std::uint32_t>(consumed);
    std::memmove(buffer, buffer + consumed, used);
    return false;
}
