#pragma once

#include "base/ResultCodes.h"

#include <exception>

// Runs an operation that the kernel or a component calls through an interface. No exception may leave the module there:
// one that comes up (memory has run out) becomes RC_NOT_MADE.
template <class Operation>
EResult Guarded(Operation operation) noexcept {
    try {
        return operation();
    } catch (const std::exception&) {
        return RC_NOT_MADE;
    }
}
