#pragma once

#include "base/ResultCodes.h"

// The root of every service and of the kernel: the look-up of interfaces by number (InterfaceIds.h).
class IKernelBase {
public:
    // Sets `out` to the interface, or to null when there is none. What is handed out is never owned by the caller.
    virtual EResult GetInterface(unsigned long id, void** out) = 0;
};
