#pragma once

#include "base/IUploadService.h"
#include "gateway/transport/ESender.h"

#include <string>
#include <vector>

// Uploads files to the directory of the settings, or to that of the call's parameters: URL, user, password.
//
// The files count as uploaded for the caller once they stand in the spool: the listener is called with status 0 inside
// UploadFiles. A file that cannot be found is reported and left out.
class EUploadService : public IUploadService {
public:
    // Throws std::runtime_error when the spool cannot be used.
    EUploadService(const UploadSettings& settings, const Reporter& report);
    EUploadService(const EUploadService&) = delete;
    EUploadService& operator=(const EUploadService&) = delete;
    virtual ~EUploadService() = default;

    // RC_NOT_FOUND: none of the files exists. RC_WRITE: the spool is full or cannot be written. The reason is reported.
    EResult UploadFiles(EUploadFiles* files, EString* parameter1, EString* parameter2, EString* parameter3,
                        unsigned long context, ISMListener* listener) override;

    ESender& Sender() { return m_Sender; }

private:
    std::vector<ESpool::File> FindFiles(const EUploadFiles& list) const;
    TransferTarget TargetOf(const ESpool::Job& job) const;
    std::string PlaceOf(const ESpool::Job& job) const;
    SendResult Send(const ESpool::Job& job, ETransfer& transfer);

    UploadSettings m_Settings;
    ESender m_Sender; // last: its thread ends before what it uses
};
