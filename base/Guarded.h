#pragma once

#include "base/ResultCodes.h"

// Runs an operation that is called from outside, or calls there. No exception may pass: whatever is thrown (memory has run
// out, a service of the kernel's has failed) becomes RC_NOT_MADE.
template <class Operation>
EResult Guarded(Operation operation) noexcept {
    try {
        return operation();
    } catch (...) {
        return RC_NOT_MADE;
    }
}
