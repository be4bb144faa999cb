#pragma once

// The gateway's numbered texts (interface 4142).
class IStringTable {
public:
    // The text of the number, never owned by the caller and valid at least until it has been copied; null when there is
    // none. `reserved` is 0.
    virtual const wchar_t* GetString(unsigned long number, unsigned long reserved) = 0;
};
