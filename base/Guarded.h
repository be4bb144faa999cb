#pragma once

#include "base/ResultCodes.h"

// Runs the operation and turns every exception into RC_NOT_MADE. For calls from and to the kernel, which no exception
// may cross.
template <class Operation>
EResult Guarded(Operation operation) noexcept {
    try {
        return operation();
    } catch (...) {
        return RC_NOT_MADE;
    }
}
