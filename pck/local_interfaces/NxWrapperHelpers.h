// What the CAN and the Ethernet wrappers share: the text of the libraries'
// fixed-size fields, the search attribute of discovery, the error texts the
// libraries write, printf-style formatting, time in ticks, replay progress
// and the staging buffer of a replay stream.
#ifndef NX_WRAPPER_HELPERS_H
#define NX_WRAPPER_HELPERS_H

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

#include "NxBusError.h"
#include "NxBusReplayStateInfo.h"

// The size of every text buffer handed to a library.
const std::size_t kNxLibraryTextSize = 2048;

// Text of a fixed-size field of a library record, which need not be
// terminated.
template <std::size_t N>
std::string NxFieldText(const char (&field)[N])
{
    return std::string(field, strnlen(field, N));
}

template <std::size_t N>
bool NxFieldEquals(const char (&field)[N], const char* text)
{
    return NxFieldText(field) == text;
}

// A zeroed search attribute of the given type with the address text copied
// in, cut to the field; the libraries take one, with a count of 1.
template <class Attribute, class Type>
Attribute NxSearchAttribute(const char* ip, Type type)
{
    Attribute attribute;
    std::memset(&attribute, 0, sizeof attribute);
    attribute.tSearchAttributeType = type;
    std::snprintf(attribute.szSearchAttribute, sizeof attribute.szSearchAttribute, "%s", ip ? ip : "");
    return attribute;
}

// The text a library operation writes into its last argument, a buffer of
// 2048 bytes; whatever the buffer holds when the operation fails, and empty
// when the operation is not bound.
template <class Operation, class... Arguments>
std::string NxLibraryText(Operation operation, Arguments... arguments)
{
    char text[kNxLibraryTextSize] = {0};
    if (operation) operation(arguments..., text);
    text[kNxLibraryTextSize - 1] = 0;
    return text;
}

// The description of a channel or interface for people: "Vendor: <vendor>;
// Interface: <interface>", and "; Serial number: <serial>" when there is one.
std::string NxChannelDescription(const std::string& vendor, const std::string& interfaceName,
                                 const std::string& serial);

// printf-style formatting into a block of twice the format's length first,
// then as large as the last try said it had to be.
std::string NxStringFormatV(const std::string& format, va_list arguments);
// "<function>: <text>", the form of every error message of the wrappers.
std::string NxFunctionText(const std::string& functionName, const std::string& text);

// A failure of a library operation, named after it.
inline NxBusError NxFailure(std::int32_t code, const char* functionName)
{
    return NxBusError(code, functionName, NxBusErrorSeverity::Error);
}

// The severity of setting a log start alone: a negative code is a warning,
// as the library may refuse it while the replay start is still to come.
NxBusErrorSeverity NxLogStartSeverity(std::int32_t code);

// Time from the library: ticks over the coefficient of ticks per
// microsecond. Throws std::runtime_error while the coefficient is 0 (no
// resolution yet, or one below a tick per microsecond).
std::uint64_t NxTicksToMicroseconds(std::uint64_t ticks, std::uint64_t coefficient);

// The library's replay status record into the component's; the state cut to
// 8 bits.
template <class Status>
void NxCopyReplayStatus(const Status& status, NxBusReplayStateInfo* info)
{
    info->ui64Timestamp = status.ui64Timestamp;
    info->ui64SentFrames = status.ui64SentFrames;
    info->ui64ErrorData = status.ui64ErrorData;
    info->ui64SendFailed = status.ui64SendFailed;
    info->ui64Dropped = status.ui64Dropped;
    info->tReplayState = static_cast<std::uint8_t>(status.tReplayState);
}

// After a push from the front of a staging buffer holding `used` bytes, of
// which the library took `consumed`: the rest moves to the front. True when
// nothing is left, so that new frames may be staged.
bool NxConsumeStaged(std::uint8_t* buffer, std::uint32_t& used, std::uint64_t consumed);

#endif
