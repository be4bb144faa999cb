#include "gateway/transport/EMailService.h"

#include "base/EMailMessage.h"
#include "gateway/Text.h"
#include "gateway/transport/Mime.h"

#include <algorithm>
#include <chrono>
#include <ctime>
#include <fcntl.h>
#include <random>

namespace fs = std::filesystem;
using nlohmann::json;

namespace {

// Different for every mail of every run, and sorted by time: the name of an .eml file, and what tells a receiver that
// two mails are the same one, sent twice because the server died before it had confirmed the first.
std::string MakeId() {
    using namespace std::chrono;
    const auto now = duration_cast<microseconds>(system_clock::now().time_since_epoch()).count();
    const auto seconds = static_cast<std::time_t>(now / 1'000'000);
    std::tm utc{};
    char text[32];
    std::strftime(text, sizeof text, "%Y%m%d-%H%M%S-", gmtime_r(&seconds, &utc));
    return text + std::to_string(1'000'000 + now % 1'000'000).substr(1) + '-' + std::to_string(std::random_device{}());
}

std::vector<std::string> Recipients(const MailDefinition& definition) {
    std::vector<std::string> all = definition.m_To;
    all.insert(all.end(), definition.m_Cc.begin(), definition.m_Cc.end());
    all.insert(all.end(), definition.m_Bcc.begin(), definition.m_Bcc.end());
    return all;
}

} // namespace

EMailService::EMailService(const MailSettings& settings, const Reporter& report)
    : ESender(settings.m_Spool, "e-mail", report), m_Settings(settings) {
    for (const auto& definition : settings.m_Definitions) {
        Stored& stored = m_Definitions[definition.m_Name];
        stored.m_Definition = definition;
        for (const auto& path : definition.m_Attachments) {
            stored.m_Attachments += ';' + path;
        }
    }
    Start();
}

EMailMessage* EMailService::CreateMessage() {
    return new (std::nothrow) EMailMessage;
}

void EMailService::ReleaseMessage(EMailMessage* message) {
    delete message;
}

std::optional<EMailService::Stored> EMailService::FindDefinition(const EString& name) {
    const std::lock_guard lock(m_DefinitionsMutex);
    const auto found = m_Definitions.find(Narrow(name));
    return found == m_Definitions.end() ? std::nullopt : std::optional(found->second);
}

EResult EMailService::LoadMessage(EMailMessage* message) {
    const auto stored = FindDefinition(message->m_Name);
    if (!stored.has_value()) {
        Report("there is no definition named \"" + Narrow(message->m_Name) + "\": nothing is sent");
        return RC_NOT_FOUND;
    }
    message->m_Attachments = Widen(stored->m_Attachments);
    return RC_OK;
}

EResult EMailService::StoreMessage(EMailMessage* message) {
    const std::lock_guard lock(m_DefinitionsMutex);
    const auto found = m_Definitions.find(Narrow(message->m_Name));
    if (found == m_Definitions.end()) {
        return RC_NOT_FOUND;
    }
    found->second.m_Attachments = Narrow(message->m_Attachments);
    return RC_OK;
}

EResult EMailService::SendMessage(EString name, EMailCompletion completion, void* context, EONEVENTSTRUCT* /*record*/) {
    const auto stored = FindDefinition(name);
    if (!stored.has_value()) {
        return RC_NOT_FOUND;
    }
    const MailDefinition& definition = stored->m_Definition;
    const std::string id = MakeId();
    const json content = {{"id", id}, {"recipients", Recipients(definition)}};
    const auto attachments = FindAttachments(stored->m_Attachments);
    const auto makeData = [&](const fs::path& data) {
        const EOpenFile file(data, O_WRONLY | O_CREAT | O_EXCL, 0666);
        WriteMail(
            {id + m_Settings.m_From.substr(m_Settings.m_From.find('@')), m_Settings.m_From, definition, attachments},
            file.Get());
        SyncPath(data);
    };
    if (!Accept(content, makeData, '"' + Narrow(name) + '"')) {
        return RC_WRITE;
    }
    completion(EMAIL_SENT, context);
    return RC_OK;
}

// The files of a list ";path;path". A path may have a ';' of its own: what is no file by itself is tried together with
// what follows.
std::vector<fs::path> EMailService::FindAttachments(const std::string& list) const {
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
            Report("attachment not found, and left out: " + list.substr(begin, end - begin));
        }
        begin = end + 1;
    }
    return files;
}

std::string EMailService::PlaceOf(const ESpool::Job& /*job*/) const {
    return m_Settings.m_Url.empty() ? m_Settings.m_Outbox : PublicUrl(m_Settings.m_Url);
}

SendResult EMailService::Send(const ESpool::Job& job, ETransfer& transfer) {
    if (m_Settings.m_Url.empty()) {
        CopyInto(job.m_Data, m_Settings.m_Outbox, job.Text("id") + ".eml");
        return {};
    }
    return transfer.SendMail(m_Settings, m_Settings.m_From, job.m_Content.at("recipients"), job.m_Data);
}
