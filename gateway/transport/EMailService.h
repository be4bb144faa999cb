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
class EMailService : public IEMailService {
public:
    // Throws std::runtime_error when the spool cannot be used or an address is none.
    EMailService(const MailSettings& settings, const Reporter& report);
    EMailService(const EMailService&) = delete;
    EMailService& operator=(const EMailService&) = delete;
    virtual ~EMailService() = default;

    // RC_NOT_FOUND: no such definition. RC_WRITE: the spool is full or cannot be written; the reason is reported.
    EResult SendMessage(EString name, EMailCompletion completion, void* context, EONEVENTSTRUCT* record) override;
    EMailMessage* CreateMessage() override;
    void ReleaseMessage(EMailMessage* message) override;
    EResult StoreMessage(EMailMessage* message) override; // RC_NOT_FOUND: no such definition
    EResult LoadMessage(EMailMessage* message) override;  // RC_NOT_FOUND: no such definition; reported

    ESender& Sender() { return m_Sender; }

private:
    struct Stored {
        MailDefinition m_Definition;
        std::vector<std::string> m_Recipients; // bare mailboxes
        std::string m_Attachments;             // in the form of EMailMessage::m_Attachments
    };

    std::optional<Stored> FindDefinition(const EString& name);
    nlohmann::json Describe(const Stored& stored) const;
    std::vector<ESpool::File> FindAttachments(const std::string& list) const;
    SendResult Send(const ESpool::Job& job, ETransfer& transfer);

    MailSettings m_Settings;
    std::string m_Place; // where all mails go, to be shown
    std::string m_From;  // bare mailbox
    std::mutex m_Mutex;  // guards the definitions
    std::map<std::string, Stored> m_Definitions;
    ESender m_Sender; // last: its thread ends before what it uses
};
