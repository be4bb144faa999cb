#include "gateway/outbox/Outbox.h"

#include "base/EMailMessage.h"
#include "base/EUploadFiles.h"
#include "base/ISMListener.h"
#include "gateway/Console.h"
#include "gateway/Text.h"
#include "gateway/outbox/Mime.h"

#include <atomic>
#include <sstream>

namespace fs = std::filesystem;

namespace {

bool Exists(const fs::path& path, const char* what) {
    std::error_code ignored;
    if (!fs::is_regular_file(path, ignored)) {
        Console::Say(std::string(what) + " not found, and left out: " + path.string());
        return false;
    }
    return true;
}

} // namespace

Outbox::Outbox(const std::optional<MailSettings>& mail, const std::optional<OutboxSettings>& upload) {
    if (mail) {
        m_From = mail->m_From;
        m_Definitions = mail->m_Definitions;
        m_pMails = std::make_unique<Queue>("e-mail", "outbox/mail", *mail);
    }
    if (upload) {
        m_pUploads = std::make_unique<Queue>("upload", "outbox/upload", *upload);
    }
}

std::vector<Queue*> Outbox::Queues() const {
    std::vector<Queue*> queues{m_pMails.get(), m_pUploads.get()};
    std::erase(queues, nullptr);
    return queues;
}

void Outbox::Stop() {
    for (Queue* const queue : Queues()) {
        queue->Stop();
    }
}

EMailMessage* Outbox::CreateMessage() {
    return new (std::nothrow) EMailMessage;
}

void Outbox::ReleaseMessage(EMailMessage* message) {
    delete message;
}

EResult Outbox::LoadMessage(EMailMessage* message) {
    const std::lock_guard lock(m_Mutex);
    const auto found = m_Definitions.find(Narrow(message->m_Name));
    if (found == m_Definitions.end()) {
        return RC_NOT_FOUND;
    }
    message->m_Attachments = Widen(found->second.m_Attachments);
    return RC_OK;
}

EResult Outbox::StoreMessage(EMailMessage* message) {
    const std::lock_guard lock(m_Mutex);
    const auto found = m_Definitions.find(Narrow(message->m_Name));
    if (found == m_Definitions.end()) {
        return RC_NOT_FOUND;
    }
    found->second.m_Attachments = Narrow(message->m_Attachments);
    return RC_OK;
}

EResult Outbox::SendMessage(EString name, EMailCompletion completion, void* context, EONEVENTSTRUCT* /*record*/) {
    return Mail(Narrow(name), "", [=] { completion(EMAIL_SENT, context); });
}

EResult Outbox::Mail(const std::string& name, const std::string& attachment, const Queue::Notice& notice) {
    std::unique_lock lock(m_Mutex);
    const auto found = m_Definitions.find(name);
    if (found == m_Definitions.end()) {
        return RC_NOT_FOUND;
    }
    MailDefinition definition = found->second;
    lock.unlock();
    definition.m_Attachments += attachment;
    m_pMails->Accept(
        NO_IDENTIFIER, "",
        [from = m_From, definition](const fs::path& mail) {
            std::vector<fs::path> files;
            std::istringstream list(definition.m_Attachments);
            for (std::string path; std::getline(list, path, ';');) {
                if (!path.empty() && Exists(path, "e-mail: attachment")) {
                    files.emplace_back(path);
                }
            }
            WriteMail(from, definition, files, mail);
        },
        notice);
    return RC_OK;
}

EResult Outbox::UploadFiles(EUploadFiles* files, EString* parameter1, EString* /*parameter2*/, EString* /*parameter3*/,
                            unsigned long context, ISMListener* listener) {
    std::vector<fs::path> paths;
    for (auto position = files->GetHeadPosition(); position != nullptr;) {
        const fs::path path = Narrow(static_cast<const EUploadFile*>(files->GetNext(position))->m_Path);
        if (Exists(path, "upload: file")) {
            paths.push_back(path);
        }
    }
    const int identifier = parameter1 != nullptr ? std::stoi(Narrow(*parameter1)) : NO_IDENTIFIER;
    const auto left = std::make_shared<std::atomic<std::size_t>>(paths.size());
    for (const fs::path& path : paths) {
        Upload(path, identifier, false, [=] {
            if (--*left == 0) {
                listener->OnUploadComplete(context, 0);
            }
        });
    }
    return paths.empty() ? RC_NOT_FOUND : RC_OK;
}

// A hard link needs no room on a full disk.
void Outbox::Upload(const fs::path& file, int identifier, bool isLeft, const Queue::Notice& notice) {
    const auto make = [=](const fs::path& entry) {
        std::error_code error = std::make_error_code(std::errc::cross_device_link);
        if (isLeft) {
            fs::create_hard_link(file, entry, error);
        }
        if (error) {
            fs::copy_file(file, entry);
        }
    };
    m_pUploads->Accept(identifier, file.filename(), make, notice);
}
