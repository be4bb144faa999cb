#pragma once

#include "base/EString.h"
#include "base/ResultCodes.h"

// A text of a configuration section.
class KVBASE_API EPersistentString : public EString {
public:
    using EString::EString;
    using EString::operator=;
    EPersistentString() = default;

    // Reads the next item of the section, as EPersistentInt does.
    EResult Restore(unsigned long section);
};
