#pragma once

#include "base/ResultCodes.h"

class IAction;

// Knows which component carries out which action (interface 4121).
class IActionRegistry {
public:
    virtual EResult Reserved1() { return RC_NOT_PROVIDED; }
    virtual EResult RegisterAction(const wchar_t* name, IAction* action) = 0;
};
