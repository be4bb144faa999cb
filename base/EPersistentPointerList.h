#pragma once

#include "base/EPtrList.h"
#include "base/ResultCodes.h"

// A list of stored objects of a configuration section.
class KVBASE_API EPersistentPointerList : public EPtrList {
public:
    using EPtrList::EPtrList;

    // Reads the next item of the section, a list whose elements are objects that begin with the member "type": each is
    // made by the factory of its type and restores itself from the same section handle, which gives it the members
    // after "type"; what it leaves unread is skipped. The elements, which are IPersistent pointers, are added behind
    // those that the list has and belong to the caller.
    //
    // An element that is malformed (RC_ITEM_TYPE), of an unknown type (RC_TYPE_UNKNOWN) or fails to restore is
    // destroyed and left out, and the others are kept; the result is then the OR of the failures. When the next item is
    // no list nothing is read (RC_ITEM_TYPE): the item is kept for the next reader, as EPersistentInt keeps a list.
    EResult Restore(unsigned long section);
};
