#pragma once

#include "base/ResultCodes.h"

class EONEVENTSTRUCT;
class EString;

// What components report to (interface 4141). Any thread may call; records are copied before the call returns. RC_OK is
// also the result when a full queue drops the request.
class ILogFile {
public:
    // One event row in the kernel log. RC_NO_RECORD for a null record.
    virtual EResult ReportEvent(EONEVENTSTRUCT* record) = 0;
    // One row of `count` contiguous records in the log file `name`. RC_NO_RECORD, RC_NO_LOG_FILE.
    virtual EResult LogSnapShot(EString& name, EONEVENTSTRUCT* records, unsigned long count) = 0;
    // One alarm row in the log file `name`. RC_NO_RECORD, RC_NO_LOG_FILE.
    virtual EResult LogAlarm(EString& name, EONEVENTSTRUCT* record) = 0;
    // The file that the kernel log currently writes to, and its format (0 plain, 1 comma-separated, 2 HTML).
    // RC_NOT_FOUND, and an empty name, before there is a kernel log.
    virtual EResult GetAgentLogFile(EString& fileName, int& format) = 0;
};
