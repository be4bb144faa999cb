#pragma once

// Is told when an upload ends.
class ISMListener {
public:
    // `context` is the one that UploadFiles was called with. Any thread may call, maybe before UploadFiles returns.
    virtual void OnUploadComplete(unsigned long context, unsigned long status) = 0;
};
