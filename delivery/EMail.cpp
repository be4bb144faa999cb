#include "service/ELogFile.h"

#include "base/EMailMessage.h"
#include "base/Guarded.h"
#include "base/IEMailService.h"
#include "base/IErrorReporter.h"
#include "base/INameService.h"
#include "base/Messages.h"
#include "config/EFileSpec.h"
#include "delivery/ELogFileDeliverySpec.h"
#include "intake/ELogInfo.h"

#include <memory>

namespace {

struct Releaser {
    void operator()(EMailMessage* message) const {
        Guarded([&] {
            m_pService->ReleaseMessage(message);
            return RC_OK;
        });
    }
    IEMailService* m_pService;
};

using Message = std::unique_ptr<EMailMessage, Releaser>;

} // namespace

// Sends one e-mail per file: the first has the first file attached, the second the first two, and so on. When a call
// throws or memory runs out, that e-mail counts as not started: the job must end, and the definition must be restored.
EResult ELogFile::DeliverEMail(ELogFileDeliverySpec* job, ELogInfo* info) {
    Message message(nullptr, Releaser{m_pEMailService});
    EStringArray files;
    EString directory;
    EPersistentString attachments;
    const EResult loaded = Guarded([&] {
        message.reset(m_pEMailService->CreateMessage());
        if (message == nullptr || !LoadDefinition(job, message.get())) {
            return RC_MISSING;
        }
        // Copied now: completion notices may free the job before the last e-mail is started.
        files.Copy(job->m_Files);
        directory = job->m_SpoolDir;
        attachments = message->m_Attachments;
        return RC_OK;
    });
    if (Failed(loaded)) {
        if (loaded != RC_MISSING) {
            m_pErrorReporter->Report(LEVEL_ERROR, SOURCE_LOG_FILE, MSG_EMAIL_NOT_STARTED);
        }
        message.reset();
        CompleteTransfers(job, ALL_TRANSFERS);
        return 0;
    }
    bool allStarted = true;
    for (int i = 0; i < files.GetSize(); ++i) {
        const EResult started = Guarded([&] {
            EString addition = L";";
            addition += directory;
            addition += files[i];
            message->m_Attachments += addition;
            m_pEMailService->StoreMessage(message.get());
            return m_pEMailService->SendMessage(message->m_Name, &ELogFile::OnEMailComplete, job, info->FirstEvent());
        });
        if (Failed(started)) {
            m_pErrorReporter->Report(LEVEL_ERROR, SOURCE_LOG_FILE, MSG_EMAIL_NOT_STARTED);
            CompleteTransfers(job, 1, false);
            allStarted = false;
        }
    }
    message->m_Attachments = attachments; // allocates nothing: the text was longer before
    Guarded([&] { return m_pEMailService->StoreMessage(message.get()); });
    message.reset();
    if (allStarted) {
        return 1;
    }
    CompleteTransfers(job, 0);
    return 0;
}

// Fills the record from the e-mail definition of the file specification; false when there is none.
bool ELogFile::LoadDefinition(const ELogFileDeliverySpec* job, EMailMessage* message) {
    message->m_Name = job->m_pFileSpec->m_MailName;
    if (m_pNameService != nullptr) {
        m_pNameService->QualifyName(job->m_nNameId, &message->m_Name);
    }
    return !Failed(m_pEMailService->LoadMessage(message));
}
