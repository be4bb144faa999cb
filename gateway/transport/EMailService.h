#pragma once

#include "base/IEMailService.h"
#include "gateway/transport/ESender.h"

#include <map>
#include <mutex>
#include <optional>
#include <string>

// Sends e-mails by the definitions of its settings; what StoreMessage changes of them lasts as long as this object.
//
// A mail counts as sent for its caller once it stands in the spool: the completion is called with EMAIL_SENT inside
// SendMessage. An attachment that cannot be found is reported and left out; nothing else of the mail is lost for it.
class EMailService : public IEMailService, public ESender {
public:
    // Throws std::runtime_error when the spool cannot be used.
    EMailService(const MailSettings& settings, const Reporter& report);
    ~EMailService() override { Stop(); }

    // RC_NOT_FOUND: no such definition. RC_WRITE: the spool is full or cannot be written; the reason is reported.
    EResult SendMessage(EString name, EMailCompletion completion, void* context, EONEVENTSTRUCT* record) override;
    EMailMessage* CreateMessage() override;
    void ReleaseMessage(EMailMessage* message) override;
    EResult StoreMessage(EMailMessage* message) override; // RC_NOT_FOUND: no such definition
    EResult LoadMessage(EMailMessage* message) override;  // RC_NOT_FOUND: no such definition; reported

protected:
    SendResult Send(const ESpool::Job& job, ETransfer& transfer) override;
    std::string PlaceOf(const ESpool::Job& job) const override;
    std::string WrittenBy(const ESpool::Job&) const override { return {}; }

private:
    struct Stored {
        MailDefinition m_Definition;
        std::string m_Attachments; // in the form of EMailMessage::m_Attachments
    };

    std::optional<Stored> FindDefinition(const EString& name);
    std::vector<std::filesystem::path> FindAttachments(const std::string& list) const;

    MailSettings m_Settings;
    std::mutex m_DefinitionsMutex; // guards what follows
    std::map<std::string, Stored> m_Definitions;
};
