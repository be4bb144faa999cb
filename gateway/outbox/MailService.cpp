#include "gateway/outbox/MailService.h"

#include "base/EMailMessage.h"
#include "gateway/Text.h"
#include "gateway/outbox/Mime.h"

#include <algorithm>

namespace fs = std::filesystem;

namespace {

// The files of a list ";path;path". A path may have a ';' of its own: what is no file by itself is tried together with
// what follows.
std::vector<fs::path> FindAttachments(const std::string& list, const Reporter& report) {
    std::vector<fs::path> files;
    std::size_t begin = 1;
    while (begin < list.size()) {
        std::size_t end = begin - 1;
        bool found = false;
        while (!found && end < list.size()) {
            end = std::min(list.find(';', end + 1), list.size());
            std::error_code ignored;
            found = fs::is_regular_file(list.substr(begin, end - begin), ignored);
        }
        if (found) {
            files.emplace_back(list.substr(begin, end - begin));
        } else {
            end = std::min(list.find(';', begin), list.size());
            report("e-mail: attachment not found, and left out: " + list.substr(begin, end - begin));
        }
        begin = end + 1;
    }
    return files;
}

} // namespace

MailService::MailService(const MailSettings& settings, const Reporter& report)
    : m_From(settings.m_From), m_Report(report), m_Queue("e-mail", "outbox/mail", settings, report) {
    for (const MailDefinition& definition : settings.m_Definitions) {
        m_Definitions[definition.m_Name] = definition;
    }
}

EMailMessage* MailService::CreateMessage() {
    return new (std::nothrow) EMailMessage;
}

void MailService::ReleaseMessage(EMailMessage* message) {
    delete message;
}

EResult MailService::LoadMessage(EMailMessage* message) {
    const std::lock_guard lock(m_Mutex);
    const auto found = m_Definitions.find(Narrow(message->m_Name));
    if (found == m_Definitions.end()) {
        m_Report("e-mail: there is no definition named \"" + Narrow(message->m_Name) + "\": nothing is sent");
        return RC_NOT_FOUND;
    }
    message->m_Attachments = Widen(found->second.m_Attachments);
    return RC_OK;
}

EResult MailService::StoreMessage(EMailMessage* message) {
    const std::lock_guard lock(m_Mutex);
    const auto found = m_Definitions.find(Narrow(message->m_Name));
    if (found == m_Definitions.end()) {
        return RC_NOT_FOUND;
    }
    found->second.m_Attachments = Narrow(message->m_Attachments);
    return RC_OK;
}

EResult MailService::SendMessage(EString name, EMailCompletion completion, void* context, EONEVENTSTRUCT* /*record*/) {
    return Send(Narrow(name), "", [=] { completion(EMAIL_SENT, context); });
}

EResult MailService::Send(const std::string& name, const std::string& attachment, const Queue::Notice& notice) {
    std::unique_lock lock(m_Mutex);
    const auto found = m_Definitions.find(name);
    if (found == m_Definitions.end()) {
        return RC_NOT_FOUND;
    }
    MailDefinition definition = found->second;
    lock.unlock();
    definition.m_Attachments += attachment;
    const auto write = [from = m_From, report = m_Report, definition](const fs::path& file) {
        WriteMail(from, definition, FindAttachments(definition.m_Attachments, report), file);
    };
    m_Queue.Accept(NO_IDENTIFIER, "", write, notice);
    return RC_OK;
}
