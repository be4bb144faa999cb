#pragma once

#include "base/ResultCodes.h"

// Takes numbered messages (interface 4106; Messages.h). Any thread may report.
class IErrorReporter {
public:
    // `text` is null when the message needs none. It is valid during the call only.
    virtual EResult Report(int level, int source, int messageNumber, const wchar_t* text = nullptr) = 0;
};
