#pragma once

#include "base/ResultCodes.h"

class EString;
class EUploadFiles;
class ISMListener;

// Uploads files (interface 4149).
class IUploadService {
public:
    virtual EResult Reserved1() { return RC_NOT_PROVIDED; }
    // Starts one upload of all files of the list; what it needs of the list and the parameters it copies during the call.
    // The parameters are null when none are known. Unless the result is negative, the listener is called once with the
    // context, on any thread, also before the call has returned.
    virtual EResult UploadFiles(EUploadFiles* files, EString* parameter1, EString* parameter2, EString* parameter3,
                                unsigned long context, ISMListener* listener) = 0;
};
