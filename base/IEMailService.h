#pragma once

#include "base/EMAILSTATUS.h"
#include "base/EString.h"
#include "base/ResultCodes.h"

class EONEVENTSTRUCT;
struct EMailMessage;

using EMailCompletion = void (*)(EMAILSTATUS status, void* context);

// Sends e-mails by stored definitions (interface 4117).
class IEMailService {
public:
    virtual EResult Reserved1() { return RC_NOT_PROVIDED; }
    virtual EResult Reserved2() { return RC_NOT_PROVIDED; }
    // Starts sending the definition as it is stored now; `record` may be null. Unless the result is negative, the
    // completion is called once with the context, on any thread, maybe before this call returns.
    virtual EResult SendMessage(EString name, EMailCompletion completion, void* context, EONEVENTSTRUCT* record) = 0;
    // A new message record, or null. The service owns it; give it back with ReleaseMessage.
    virtual EMailMessage* CreateMessage() = 0;
    virtual void ReleaseMessage(EMailMessage* message) = 0;
    // Stores the record as the definition of its name.
    virtual EResult StoreMessage(EMailMessage* message) = 0;
    // Fills the record from the definition named by its m_Name; negative when there is none.
    virtual EResult LoadMessage(EMailMessage* message) = 0;
};
