#pragma once

#include "base/ResultCodes.h"

class EString;
class EUploadFiles;
class ISMListener;

// Uploads files (interface 4149).
class IUploadService {
public:
    virtual EResult Reserved1() { return RC_NOT_PROVIDED; }
    // Starts one upload of all files of the list. The list and the parameters are valid during the call only;
    // parameters that are not known are null. Unless the result is negative, the listener is called once with the
    // context, on any thread, maybe before this call returns.
    virtual EResult UploadFiles(EUploadFiles* files, EString* parameter1, EString* parameter2, EString* parameter3,
                                unsigned long context, ISMListener* listener) = 0;
};
