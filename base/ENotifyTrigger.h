#pragma once

#include "base/ETrigger.h"

// A trigger that informs its listeners by calling them.
class KVBASE_API ENotifyTrigger : public ETrigger {
public:
    // Calls the first operation of the listener with the two values and the data; RC_OK whatever that returned.
    EResult InformOneListener(void* listener, unsigned long value1, unsigned long value2, void* data) override;
};
