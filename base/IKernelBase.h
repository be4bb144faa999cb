#pragma once

#include "base/ResultCodes.h"

// The root of every service and of the kernel: the look-up of interfaces by number (InterfaceIds.h).
class IKernelBase {
public:
    // Sets `out` to the interface, or to null when there is none. The caller does not own it.
    virtual EResult GetInterface(unsigned long id, void** out) = 0;
};
