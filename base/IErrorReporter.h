#pragma once

#include "base/ResultCodes.h"

// Takes numbered messages (interface 4106; Messages.h). Any thread may report.
class IErrorReporter {
public:
    // `text`, where the message needs one, is valid during the call; otherwise null.
    virtual EResult Report(int level, int source, int messageNumber, const wchar_t* text = nullptr) = 0;
};
