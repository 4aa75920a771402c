// The result of every operation of the bus wrappers: the code of the bus
// access library (or one of the wrapper's own), the operation that produced
// it, and how serious it is. Callers test errorCode alone: a success value
// may carry a name and a severity.
#ifndef NX_BUS_ERROR_H
#define NX_BUS_ERROR_H

#include <cstdint>
#include <string>
#include <utility>

enum class NxBusErrorSeverity : int {
    NotDefined = 0,  // nothing was set
    Error = 1,       // the channel is to be treated as failed
    Warning = 2,     // the operation failed, the channel stays usable
    Info = 3         // no wrapper produces it
};

struct NxBusError {
    std::int32_t errorCode = 0;
    std::string functionName;
    NxBusErrorSeverity severity = NxBusErrorSeverity::NotDefined;

    NxBusError() = default;
    NxBusError(std::int32_t code, std::string name, NxBusErrorSeverity level)
        : errorCode(code), functionName(std::move(name)), severity(level)
    {
    }
    NxBusError(NxBusError&&) = default;
    NxBusError& operator=(NxBusError&&) = default;
};

#endif
