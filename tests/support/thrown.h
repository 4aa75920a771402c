// Control leaves a failed framework operation by throwing a plain int.
#ifndef VELDOR_TESTS_THROWN_H
#define VELDOR_TESTS_THROWN_H

#include <functional>

// The integer that `body` throws, or 0 when it returns.
inline int Thrown(const std::function<void()>& body)
{
    try {
        body();
    } catch (int code) {
        return code;
    }
    return 0;
}

#endif
