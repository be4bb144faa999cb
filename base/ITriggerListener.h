#pragma once

#include "base/ResultCodes.h"

// Hears of a trigger that was raised.
class ITriggerListener {
public:
    // `context` is the one of the subscription, `value` and `data` are the trigger's.
    virtual EResult OnTrigger(unsigned long context, unsigned long value, void* data) = 0;
};
