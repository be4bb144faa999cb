#pragma once

#include "base/ResultCodes.h"

class ETrigger;

// Knows the triggers of the gateway by name.
class INotifyMgr {
public:
    virtual EResult AddTrigger(const wchar_t* name, ETrigger* trigger) = 0;
};
