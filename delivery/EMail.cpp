#include "service/ELogFile.h"

#include "base/EMailMessage.h"
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
    void operator()(EMailMessage* message) const { m_pService->ReleaseMessage(message); }
    IEMailService* m_pService;
};

using Message = std::unique_ptr<EMailMessage, Releaser>;

} // namespace

// One sending per file; the first carries the first file, the second the first two, and so on.
EResult ELogFile::DeliverEMail(ELogFileDeliverySpec* job, ELogInfo* info) {
    const Message message(m_pEMailService->CreateMessage(), Releaser{m_pEMailService});
    if (message == nullptr || !LoadDefinition(job, message.get())) {
        CompleteJob(job);
        return 0;
    }
    // What is needed of the job is taken now: its notices may free it before the last sending has been started.
    EStringArray files;
    files.Copy(job->m_Files);
    const EString directory = job->m_SpoolDir;
    const EPersistentString attachments = message->m_Attachments;
    bool allStarted = true;
    for (int i = 0; i < files.GetSize(); ++i) {
        message->m_Attachments += L';';
        message->m_Attachments += directory;
        message->m_Attachments += files[i];
        m_pEMailService->StoreMessage(message.get());
        if (Failed(m_pEMailService->SendMessage(message->m_Name, &ELogFile::OnEMailComplete, job,
                                                info->FirstEvent()))) {
            m_pErrorReporter->Report(LEVEL_ERROR, SOURCE_LOG_FILE, MSG_EMAIL_NOT_STARTED);
            CountTransfer(job);
            allStarted = false;
        }
    }
    message->m_Attachments = attachments;
    m_pEMailService->StoreMessage(message.get());
    if (allStarted) {
        return 1;
    }
    CompleteIfDone(job);
    return 0;
}

// Fills the record from the e-mail definition that the file specification names; false when there is none.
bool ELogFile::LoadDefinition(const ELogFileDeliverySpec* job, EMailMessage* message) {
    message->m_Name = job->m_pFileSpec->m_MailName;
    if (m_pNameService != nullptr) {
        m_pNameService->QualifyName(job->m_nNameId, &message->m_Name);
    }
    return !Failed(m_pEMailService->LoadMessage(message));
}
