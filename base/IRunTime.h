#pragma once

#include "base/ResultCodes.h"

// The run-time side of a service.
class IRunTime {
public:
    virtual EResult RTPreStart() = 0;
    virtual EResult RTStart() = 0;
    virtual EResult RTRestore(unsigned long section, int index) = 0;
};
