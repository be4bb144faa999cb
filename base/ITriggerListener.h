#pragma once

#include "base/ResultCodes.h"

// Is told when a trigger is raised.
class ITriggerListener {
public:
    // `context` is the one of the subscription, `value` and `data` are the trigger's.
    virtual EResult OnTrigger(unsigned long context, unsigned long value, void* data) = 0;
};
