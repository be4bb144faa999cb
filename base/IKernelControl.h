#pragma once

#include "base/ResultCodes.h"

// The kernel's restart control (interface 4138). After a failed restore of pending entries a service calls
// Operation9(1), Operation6(0), Operation3() and Operation5(), in this order. What they do is up to the kernel.
class IKernelControl {
public:
    virtual EResult Reserved1() { return RC_NOT_PROVIDED; }
    virtual EResult Reserved2() { return RC_NOT_PROVIDED; }
    virtual EResult Operation3() = 0;
    virtual EResult Reserved4() { return RC_NOT_PROVIDED; }
    virtual EResult Operation5() = 0;
    virtual EResult Operation6(unsigned long value) = 0;
    // 7: non-zero when the services are to restore what they saved before a warm restart.
    virtual EResult IsRestoreWanted() = 0;
    virtual EResult Reserved8() { return RC_NOT_PROVIDED; }
    virtual EResult Operation9(unsigned long value) = 0;
};
