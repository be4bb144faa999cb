#include "service/ELogFile.h"

#include "base/EUploadFile.h"
#include "base/EUploadFiles.h"
#include "base/Guarded.h"
#include "base/IErrorReporter.h"
#include "base/INameService.h"
#include "base/IUploadService.h"
#include "base/Messages.h"
#include "delivery/ELogFileDeliverySpec.h"

#include <memory>

namespace {

// A list of files to upload that owns its entries.
class OwnedUploadFiles : public EUploadFiles {
public:
    OwnedUploadFiles() = default;
    OwnedUploadFiles(const OwnedUploadFiles&) = delete;
    OwnedUploadFiles& operator=(const OwnedUploadFiles&) = delete;
    ~OwnedUploadFiles() {
        while (!IsEmpty()) {
            delete static_cast<EUploadFile*>(RemoveHead());
        }
    }

    EResult AddAll(const ELogFileDeliverySpec& job) {
        for (int i = 0; i < job.m_Files.GetSize(); ++i) {
            auto file = std::make_unique<EUploadFile>(job.m_SpoolDir + job.m_Files[i]);
            AddTail(file.get());
            (void)file.release();
        }
        return RC_OK;
    }
};

} // namespace

// Starts one upload with all files of the job.
EResult ELogFile::DeliverESFile(ELogFileDeliverySpec* job) {
    OwnedUploadFiles files;
    if (Failed(Guarded([&] { return files.AddAll(*job); }))) {
        CompleteTransfers(job, ALL_TRANSFERS);
        return 0;
    }
    const EResult started = Guarded([&] {
        EString values[3];
        const bool known =
            m_pNameService != nullptr &&
            !Failed(m_pNameService->GetUploadParameters(job->m_nNameId, &values[0], &values[1], &values[2]));
        // The job may be freed before the call returns.
        return m_pUploadService->UploadFiles(&files, known ? &values[0] : nullptr, known ? &values[1] : nullptr,
                                             known ? &values[2] : nullptr, reinterpret_cast<unsigned long>(job),
                                             static_cast<ISMListener*>(this));
    });
    if (Failed(started)) {
        m_pErrorReporter->Report(LEVEL_ERROR, SOURCE_LOG_FILE, MSG_UPLOAD_NOT_STARTED);
        CompleteTransfers(job, ALL_TRANSFERS);
    }
    return 1;
}
