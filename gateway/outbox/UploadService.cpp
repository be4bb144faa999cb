#include "gateway/outbox/UploadService.h"

#include "base/EUploadFiles.h"
#include "base/ISMListener.h"
#include "gateway/Text.h"

namespace fs = std::filesystem;

UploadService::UploadService(const OutboxSettings& settings, const Reporter& report)
    : m_Queue("upload", "outbox/upload", settings, report), m_Report(report) {}

EResult UploadService::UploadFiles(EUploadFiles* files, EString* parameter1, EString* /*parameter2*/,
                                   EString* /*parameter3*/, unsigned long context, ISMListener* listener) {
    constexpr unsigned long STATUS_UPLOADED = 0;
    std::vector<fs::path> paths;
    for (auto position = files->GetHeadPosition(); position != nullptr;) {
        const fs::path path = Narrow(static_cast<const EUploadFile*>(files->GetNext(position))->m_Path);
        std::error_code ignored;
        if (fs::is_regular_file(path, ignored)) {
            paths.push_back(path);
        } else {
            m_Report("upload: file not found, and left out: " + path.string());
        }
    }
    const int identifier = parameter1 != nullptr ? std::stoi(Narrow(*parameter1)) : NO_IDENTIFIER;
    const auto left = std::make_shared<std::atomic<std::size_t>>(paths.size());
    for (const fs::path& path : paths) {
        Upload(path, identifier, [=] {
            if (--*left == 0) {
                listener->OnUploadComplete(context, STATUS_UPLOADED);
            }
        });
    }
    return paths.empty() ? RC_NOT_FOUND : RC_OK;
}

void UploadService::Upload(const fs::path& file, int identifier, const Queue::Notice& notice) {
    // A copy, for the file itself may be kept and changed.
    m_Queue.Accept(
        identifier, file.filename(), [file](const fs::path& entry) { fs::copy_file(file, entry); }, notice);
}
