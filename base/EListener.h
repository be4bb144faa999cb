#pragma once

#include "base/EString.h"

class ITriggerListener;

// One subscription of a trigger.
struct EListener {
    ITriggerListener* m_pListener; // not owned
    EString m_Trigger;
    EString m_Item;
    unsigned long m_nContext;
};
