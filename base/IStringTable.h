#pragma once

// The gateway's numbered texts (interface 4142).
class IStringTable {
public:
    // The text of the number, or null. The caller does not own it and copies it at once. `reserved` is 0.
    virtual const wchar_t* GetString(unsigned long number, unsigned long reserved) = 0;
};
