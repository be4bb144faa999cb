#pragma once

#include "base/ResultCodes.h"

class EString;

// An object that is stored in a configuration section.
class IPersistent {
public:
    virtual EResult Save(unsigned long section) = 0;
    // Reads the object's items, in their order, from the open section.
    virtual EResult Restore(unsigned long section) = 0;
    virtual EResult GetType(EString& type) = 0;
    // Makes another object of this type, with its defaults, which the caller owns.
    virtual EResult GetNewObject(IPersistent*& object) = 0;
    // Frees the object.
    virtual EResult DestroyObject() = 0;
};
