#include "gateway/transport/EMailService.h"

#include "base/EMailMessage.h"
#include "gateway/Text.h"
#include "gateway/transport/Mime.h"

#include <chrono>
#include <ctime>
#include <fcntl.h>
#include <random>

namespace fs = std::filesystem;
using nlohmann::json;

namespace {

const char* const OUTBOX_PART = ".part-"; // begins the name of a mail that is still being written

// Different for every mail of every run, and sorted by time: the name of an .eml file, and what tells a receiver that
// two mails are the same one, sent twice because the server died before it had confirmed the first.
std::string MakeId() {
    using namespace std::chrono;
    const auto now = duration_cast<microseconds>(system_clock::now().time_since_epoch()).count();
    const std::time_t seconds = now / 1'000'000;
    std::tm utc{};
    gmtime_r(&seconds, &utc);
    char text[64];
    const std::size_t length = std::strftime(text, sizeof text, "%Y%m%d-%H%M%S", &utc);
    std::random_device random;
    const int rest =
        std::snprintf(text + length, sizeof text - length, "-%06d-%08x", static_cast<int>(now % 1'000'000), random());
    return {text, length + static_cast<std::size_t>(rest)};
}

std::string JoinAttachments(const std::vector<std::string>& paths) {
    std::string list;
    for (const auto& path : paths) {
        list += ';' + path;
    }
    return list;
}

std::vector<std::string> Recipients(const MailDefinition& definition) {
    std::vector<std::string> all = definition.m_To;
    all.insert(all.end(), definition.m_Cc.begin(), definition.m_Cc.end());
    all.insert(all.end(), definition.m_Bcc.begin(), definition.m_Bcc.end());
    return all;
}

Mail MakeMail(const ESpool::Job& job) {
    Mail mail;
    mail.m_From = job.Text("from");
    mail.m_To = job.m_Content.at("to");
    mail.m_Cc = job.m_Content.at("cc");
    mail.m_Subject = job.Text("subject");
    mail.m_Text = job.Text("text");
    mail.m_nTime = job.m_Content.at("time");
    mail.m_MessageId = job.Text("id") + '@' + job.Text("domain");
    for (const auto& file : job.m_Files) {
        mail.m_Attachments.push_back({file.m_Path, file.m_Name});
    }
    return mail;
}

// Opens a file of the job's for the message; nothing is left of it when it is closed.
void OpenMessage(const ESpool::Job& job, std::optional<EOpenFile>& file) {
    const fs::path path = job.m_Directory / "message";
    file.emplace(path, O_RDWR | O_CREAT | O_TRUNC);
    fs::remove(path);
}

} // namespace

EMailService::EMailService(const MailSettings& settings, const Reporter& report)
    : m_Settings(settings),
      m_Place(settings.m_Url.empty() ? settings.m_Outbox : PublicUrl(settings.m_Url)),
      m_Sender(settings.m_Spool, "e-mail", report) {
    m_From = ParseMailboxes({settings.m_From}).at(0);
    for (const auto& definition : settings.m_Definitions) {
        m_Definitions[definition.m_Name] = {definition, ParseMailboxes(Recipients(definition)),
                                            JoinAttachments(definition.m_Attachments)};
    }
    m_Sender.Start({[this](const ESpool::Job& job, ETransfer& transfer) { return Send(job, transfer); },
                    [this](const ESpool::Job&) { return m_Place; }});
}

EMailMessage* EMailService::CreateMessage() {
    return new (std::nothrow) EMailMessage;
}

void EMailService::ReleaseMessage(EMailMessage* message) {
    delete message;
}

std::optional<EMailService::Stored> EMailService::FindDefinition(const EString& name) {
    const std::lock_guard lock(m_Mutex);
    const auto found = m_Definitions.find(Narrow(name));
    return found == m_Definitions.end() ? std::nullopt : std::optional(found->second);
}

EResult EMailService::LoadMessage(EMailMessage* message) {
    const auto stored = FindDefinition(message->m_Name);
    if (!stored.has_value()) {
        m_Sender.Report("there is no definition named \"" + Narrow(message->m_Name) + "\": nothing is sent");
        return RC_NOT_FOUND;
    }
    message->m_Attachments = Widen(stored->m_Attachments);
    return RC_OK;
}

EResult EMailService::StoreMessage(EMailMessage* message) {
    const std::lock_guard lock(m_Mutex);
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
    const std::string what = '"' + Narrow(name) + '"';
    if (!m_Sender.Accept(Describe(*stored), FindAttachments(stored->m_Attachments), what, 1)) {
        return RC_WRITE;
    }
    completion(EMAIL_SENT, context);
    return RC_OK;
}

json EMailService::Describe(const Stored& stored) const {
    const MailDefinition& definition = stored.m_Definition;
    return {
        {"id", MakeId()},
        {"domain", m_From.substr(m_From.find('@') + 1)},
        {"time", std::chrono::system_clock::to_time_t(std::chrono::system_clock::now())},
        {"from", m_Settings.m_From},
        {"sender", m_From},
        {"to", definition.m_To},
        {"cc", definition.m_Cc},
        {"recipients", stored.m_Recipients},
        {"subject", definition.m_Subject},
        {"text", definition.m_Text},
    };
}

// The files of a list ";path;path". A path may have a ';' of its own: what is no file by itself is tried together with
// what follows.
std::vector<ESpool::File> EMailService::FindAttachments(const std::string& list) const {
    std::vector<ESpool::File> files;
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
            files.push_back(ESpool::File::At(list.substr(begin, end - begin)));
        } else {
            end = std::min(list.find(';', begin), list.size());
            m_Sender.Report("attachment not found, and left out: " + list.substr(begin, end - begin));
        }
        begin = end + 1;
    }
    return files;
}

SendResult EMailService::Send(const ESpool::Job& job, ETransfer& transfer) {
    SendResult result;
    if (m_Settings.m_Url.empty()) {
        const fs::path outbox = m_Settings.m_Outbox;
        fs::create_directories(outbox);
        const fs::path part = outbox / (OUTBOX_PART + job.Text("id"));
        const EOpenFile file(part, O_WRONLY | O_CREAT | O_TRUNC, 0666);
        WriteMail(MakeMail(job), file.Get());
        SyncPath(part);
        RenameDurably(part, outbox / (job.Text("id") + ".eml"));
    } else {
        std::optional<EOpenFile> message;
        OpenMessage(job, message);
        WriteMail(MakeMail(job), message->Get());
        const TransferTarget server{
            m_Settings.m_Url,        m_Settings.m_User, m_Settings.m_Password, m_Settings.m_CaFile, {},
            m_Settings.m_bRequireTls};
        result = transfer.SendMail(server, job.Text("sender"), job.m_Content.at("recipients"), message->Get());
    }
    if (result.m_Outcome == SendResult::Sent) {
        ++m_Sender.m_nSent;
    }
    return result;
}
