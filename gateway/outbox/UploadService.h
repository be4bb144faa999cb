#pragma once

#include "base/IUploadService.h"
#include "gateway/outbox/Queue.h"

// Uploads files by a queue. The files count as uploaded for the caller once they are safe in it: the listener is then
// called with status 0. A file that cannot be found is reported and left out.
class UploadService : public IUploadService {
public:
    UploadService(const OutboxSettings& settings, const Reporter& report);

    // RC_NOT_FOUND: none of the files exists. The first parameter is the identifier as text; no parameter: none.
    EResult UploadFiles(EUploadFiles* files, EString* parameter1, EString* parameter2, EString* parameter3,
                        unsigned long context, ISMListener* listener) override;

    // The same for one file, which exists.
    void Upload(const std::filesystem::path& file, int identifier, const Queue::Notice& notice);

    Queue m_Queue;

private:
    Reporter m_Report;
};
