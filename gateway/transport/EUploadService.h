#pragma once

#include "base/IUploadService.h"
#include "gateway/transport/ESender.h"

#include <string>
#include <vector>

// Uploads files to the directory of the settings, or to that of the call's parameters: URL, user, password.
//
// The files count as uploaded for the caller once they stand in the spool: the listener is called with status 0 inside
// UploadFiles. A file that cannot be found is reported and left out.
class EUploadService : public IUploadService, public ESender {
public:
    // Throws std::runtime_error when the spool cannot be used.
    EUploadService(const UploadSettings& settings, const Reporter& report);
    ~EUploadService() override { Stop(); }

    // RC_NOT_FOUND: none of the files exists. RC_WRITE: the spool is full or cannot be written; files that got into it
    // are uploaded nevertheless. The reason is reported.
    EResult UploadFiles(EUploadFiles* files, EString* parameter1, EString* parameter2, EString* parameter3,
                        unsigned long context, ISMListener* listener) override;

protected:
    SendResult Send(const ESpool::Job& job, ETransfer& transfer) override;
    std::string PlaceOf(const ESpool::Job& job) const override;
    std::string WrittenBy(const ESpool::Job& job) const override { return job.Text("name"); }

private:
    Server ServerOf(const ESpool::Job& job) const;

    UploadSettings m_Settings;
};
