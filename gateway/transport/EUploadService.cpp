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

void CopyInto(const fs::path& directory, const ESpool::File& file, std::uint64_t number) {
    fs::create_directories(directory);
    // A name of fixed length: the file's own may be as long as names can be.
    const fs::path part = directory / (".part-" + std::to_string(number));
    CopyDurably(file.m_Path, part);
    RenameDurably(part, directory / file.m_Name);
}

} // namespace

EUploadService::EUploadService(const UploadSettings& settings, const Reporter& report)
    : m_Settings(settings), m_Sender(settings.m_Spool, "upload", report) {
    const auto written = [this](const ESpool::Job& job) {
        std::vector<std::string> files;
        for (const auto& file : job.m_Files) {
            files.push_back(PlaceOf(job) + '/' + file.m_Name);
        }
        return files;
    };
    m_Sender.Start({[this](const ESpool::Job& job, ETransfer& transfer) { return Send(job, transfer); },
                    [this](const ESpool::Job& job) { return PlaceOf(job); }, written});
}

EResult EUploadService::UploadFiles(EUploadFiles* files, EString* parameter1, EString* parameter2, EString* parameter3,
                                    unsigned long context, ISMListener* listener) {
    const auto found = FindFiles(*files);
    if (found.empty()) {
        return RC_NOT_FOUND;
    }
    json content = json::object();
    if (const std::string url = TextOrNone(parameter1); !url.empty()) {
        content = {{"url", url}, {"user", TextOrNone(parameter2)}, {"password", TextOrNone(parameter3)}};
    }
    std::string what = found[0].m_Name;
    for (std::size_t i = 1; i < found.size(); ++i) {
        what += ", " + found[i].m_Name;
    }
    if (!m_Sender.Accept(content, found, what, found.size())) {
        return RC_WRITE;
    }
    if (listener != nullptr) {
        listener->OnUploadComplete(context, STATUS_UPLOADED);
    }
    return RC_OK;
}

std::vector<ESpool::File> EUploadService::FindFiles(const EUploadFiles& list) const {
    std::vector<ESpool::File> files;
    for (auto position = list.GetHeadPosition(); position != nullptr;) {
        const std::string path = Narrow(static_cast<const EUploadFile*>(list.GetNext(position))->m_Path);
        std::error_code ignored;
        if (fs::is_regular_file(path, ignored)) {
            files.push_back(ESpool::File::At(path));
        } else {
            m_Sender.Report("file not found, and left out: " + path);
        }
    }
    return files;
}

// Where the job's files go: where its call said, otherwise where the settings say now.
TransferTarget EUploadService::TargetOf(const ESpool::Job& job) const {
    if (const std::string url = job.Text("url"); !url.empty()) {
        return {url, job.Text("user"), job.Text("password"), m_Settings.m_CaFile, m_Settings.m_KnownHosts};
    }
    return {m_Settings.m_Url, m_Settings.m_User, m_Settings.m_Password, m_Settings.m_CaFile, m_Settings.m_KnownHosts};
}

std::string EUploadService::PlaceOf(const ESpool::Job& job) const {
    const std::string url = TargetOf(job).m_Url;
    return url.empty() ? m_Settings.m_Directory : PublicUrl(url);
}

SendResult EUploadService::Send(const ESpool::Job& job, ETransfer& transfer) {
    const TransferTarget target = TargetOf(job);
    const std::string local = target.m_Url.empty() ? m_Settings.m_Directory : LocalPath(target.m_Url);
    SendResult refused;
    for (const auto& file : job.m_Files) {
        SendResult result;
        if (!local.empty()) {
            CopyInto(local, file, job.m_nNumber);
        } else {
            result = transfer.Upload(target, file.m_Path, file.m_Name);
        }
        if (result.m_Outcome == SendResult::Sent) {
            m_Sender.Spool().FileDone(job.m_nNumber, file.m_Path);
            ++m_Sender.m_nSent;
        } else if (result.m_Outcome == SendResult::Refused) {
            refused = {SendResult::Refused, file.m_Name + ": " + result.m_Text};
        } else {
            return result;
        }
    }
    return refused;
}
