#pragma once

#include "base/ResultCodes.h"

// The run-time side of a service. The kernel's thread calls.
class IRunTime {
public:
    virtual EResult RTPreStart() = 0;
    virtual EResult RTStart() = 0;
    // As IKernelService::Restore: between PrepareToStart and PreStart only, not while the service runs.
    virtual EResult RTRestore(unsigned long section, int index) = 0;
};
