#pragma once

#include "base/EPtrList.h"
#include "base/ResultCodes.h"

// A list of stored objects of a configuration section.
class KVBASE_API EPersistentPointerList : public EPtrList {
public:
    using EPtrList::EPtrList;

    // Reads the next item of the section, a list of objects whose first member is "type". The factory of that type
    // makes each element, which then restores itself from the same section handle: it reads the members after "type",
    // and what it leaves unread is skipped. The elements are IPersistent pointers. They are appended to the list and
    // belong to the caller.
    //
    // An element that is malformed (RC_ITEM_TYPE), of an unknown type (RC_TYPE_UNKNOWN) or fails to restore is
    // destroyed and left out. The others are kept, and the result is the OR of the failures. When the next item is not
    // a list, nothing is read and the result is RC_ITEM_TYPE.
    EResult Restore(unsigned long section);
};
