#pragma once

#include "base/Export.h"
#include "base/ResultCodes.h"

// A signed 32-bit number of a configuration section.
class KVBASE_API EPersistentInt {
public:
    EPersistentInt() = default;
    EPersistentInt(int value) : m_nValue(value) {}
    operator int() const { return m_nValue; }

    // Reads the next item of the section. After a failure (RC_ITEM_MISSING, RC_ITEM_TYPE, RC_ITEM_RANGE) the value is
    // unchanged and the item counts as read, unless it is a list. A list stays unread, for EPersistentPointerList: when
    // the item before it is missing, the list can still be read. RC_NO_SECTION for a handle of 0.
    EResult Restore(unsigned long section);

private:
    int m_nValue = 0;
};
