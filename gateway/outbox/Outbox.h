#pragma once

#include "base/IEMailService.h"
#include "base/IUploadService.h"
#include "gateway/outbox/Queue.h"

#include <memory>
#include <optional>

// The gateway's sending services, and their queues in "outbox" of the working directory. What is handed over counts as
// sent for the caller once it is safe there. A file that cannot be found is reported and left out. StoreMessage changes a
// definition in memory only. Any thread may call.
class Outbox : public IEMailService, public IUploadService {
public:
    // Throws std::exception when a queue cannot be used.
    Outbox(const std::optional<MailSettings>& mail, const std::optional<OutboxSettings>& upload);

    IEMailService* Mails() { return m_pMails != nullptr ? this : nullptr; } // null when they are not configured
    IUploadService* Uploads() { return m_pUploads != nullptr ? this : nullptr; }
    std::vector<Queue*> Queues() const; // of what is configured

    void Stop(); // ends the threads of both; no notice comes from them afterwards

    EResult SendMessage(EString name, EMailCompletion completion, void* context, EONEVENTSTRUCT* record) override;
    EMailMessage* CreateMessage() override;
    void ReleaseMessage(EMailMessage* message) override;
    EResult StoreMessage(EMailMessage* message) override;
    EResult LoadMessage(EMailMessage* message) override;
    // The first parameter is the identifier as text. RC_NOT_FOUND: none of the files exists.
    EResult UploadFiles(EUploadFiles* files, EString* parameter1, EString* parameter2, EString* parameter3,
                        unsigned long context, ISMListener* listener) override;

    // The same for one file. A mail carries it, given as ";path", besides the attachments of its definition. RC_NOT_FOUND
    // when there is no definition of that name.
    EResult Mail(const std::string& name, const std::string& attachment, const Queue::Notice& notice);
    // `isLeft`: nobody will write to the file or keep it, so a hard link is made instead of a copy where possible.
    void Upload(const std::filesystem::path& file, int identifier, bool isLeft, const Queue::Notice& notice);

private:
    std::string m_From;
    std::mutex m_Mutex; // guards m_Definitions
    std::map<std::string, MailDefinition> m_Definitions;
    std::unique_ptr<Queue> m_pMails;
    std::unique_ptr<Queue> m_pUploads;
};
