#pragma once

#include "base/IEMailService.h"
#include "gateway/outbox/Queue.h"

#include <map>
#include <mutex>

// Sends e-mails, by a queue and the definitions of its settings; what StoreMessage changes of them lasts as long as this
// object. A mail counts as sent for its caller once it is safe in the queue: the completion is then called with
// EMAIL_SENT. An attachment that cannot be found is reported and left out.
class MailService : public IEMailService {
public:
    MailService(const MailSettings& settings, const Reporter& report);

    // RC_NOT_FOUND: no such definition.
    EResult SendMessage(EString name, EMailCompletion completion, void* context, EONEVENTSTRUCT* record) override;
    EMailMessage* CreateMessage() override;
    void ReleaseMessage(EMailMessage* message) override;
    EResult StoreMessage(EMailMessage* message) override;
    EResult LoadMessage(EMailMessage* message) override; // reports a definition that is not there

    // The same with ";path" behind the attachments of the definition.
    EResult Send(const std::string& name, const std::string& attachment, const Queue::Notice& notice);

private:
    std::string m_From;
    Reporter m_Report;
    std::mutex m_Mutex; // guards what follows
    std::map<std::string, MailDefinition> m_Definitions;

public:
    Queue m_Queue; // last: its thread uses the others
};
