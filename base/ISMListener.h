#pragma once

// Hears of the end of an upload.
class ISMListener {
public:
    // `context` is the one that was handed to IUploadService::UploadFiles. Any thread may call, also before UploadFiles
    // has returned.
    virtual void OnUploadComplete(unsigned long context, unsigned long status) = 0;
};
