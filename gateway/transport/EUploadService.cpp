#include "gateway/transport/EUploadService.h"

#include "base/EUploadFiles.h"
#include "base/ISMListener.h"
#include "gateway/Text.h"

namespace fs = std::filesystem;
using nlohmann::json;

namespace {

constexpr unsigned long STATUS_UPLOADED = 0;

std::string TextOrNone(const EString* text) {
    return text == nullptr ? std::string() : Narrow(*text);
}

} // namespace

EUploadService::EUploadService(const UploadSettings& settings, const Reporter& report)
    : ESender(settings.m_Spool, "upload", report), m_Settings(settings) {
    Start();
}

EResult EUploadService::UploadFiles(EUploadFiles* files, EString* parameter1, EString* parameter2, EString* parameter3,
                                    unsigned long context, ISMListener* listener) {
    json content = json::object();
    if (const std::string url = TextOrNone(parameter1); !url.empty()) {
        content = {{"url", url}, {"user", TextOrNone(parameter2)}, {"password", TextOrNone(parameter3)}};
    }
    EResult result = RC_NOT_FOUND;
    for (auto position = files->GetHeadPosition(); position != nullptr;) {
        const fs::path path = Narrow(static_cast<const EUploadFile*>(files->GetNext(position))->m_Path);
        std::error_code ignored;
        if (!fs::is_regular_file(path, ignored)) {
            Report("file not found, and left out: " + path.string());
            continue;
        }
        content["name"] = NameToSend(path);
        if (!Accept(
                content, [&](const fs::path& data) { LinkOrCopy(path, data); }, content["name"])) {
            result = RC_WRITE;
        } else if (result == RC_NOT_FOUND) {
            result = RC_OK;
        }
    }
    if (result == RC_OK && listener != nullptr) {
        listener->OnUploadComplete(context, STATUS_UPLOADED);
    }
    return result;
}

// Where the job's file goes: where its call said, otherwise where the settings say now.
Server EUploadService::ServerOf(const ESpool::Job& job) const {
    Server server = m_Settings;
    if (const std::string url = job.Text("url"); !url.empty()) {
        server.m_Url = url;
        server.m_User = job.Text("user");
        server.m_Password = job.Text("password");
    }
    return server;
}

std::string EUploadService::PlaceOf(const ESpool::Job& job) const {
    const std::string url = ServerOf(job).m_Url;
    return url.empty() ? m_Settings.m_Directory : PublicUrl(url);
}

SendResult EUploadService::Send(const ESpool::Job& job, ETransfer& transfer) {
    const Server server = ServerOf(job);
    const std::string local = server.m_Url.empty() ? m_Settings.m_Directory : LocalPath(server.m_Url);
    if (local.empty()) {
        return transfer.Upload(server, job.m_Data, job.Text("name"));
    }
    CopyInto(job.m_Data, local, job.Text("name"));
    return {};
}
