#include "tests/kernel/TestKernel.h"

#include "base/EUploadFile.h"
#include "base/EUploadFiles.h"
#include "base/EUtility.h"
#include "base/InterfaceIds.h"
#include "tests/Reports.h"

#include <sstream>

std::string Narrow(const wchar_t* text) {
    EByteArray bytes;
    EUtility::Utf8Encode(text, bytes);
    return {bytes.GetData(), bytes.GetData() + bytes.GetSize()};
}

void TestNotices::Take(const std::function<void()>& notice) {
    const When when = m_When == When::Mixed ? static_cast<When>(m_nTaken++ % 4) : m_When;
    if (when == When::Inside) {
        InKernel::Leave(notice);
        return;
    }
    const std::lock_guard<std::mutex> lock(m_Mutex);
    const std::size_t times = when == When::Never ? 0 : when == When::Twice ? 2 : 1;
    m_Waiting.insert(when == When::OutOfOrder ? m_Waiting.begin() : m_Waiting.end(), times, notice);
}

bool TestNotices::GiveNext() {
    std::unique_lock<std::mutex> lock(m_Mutex);
    if (m_Waiting.empty()) {
        return false;
    }
    const std::function<void()> notice = std::move(m_Waiting.front());
    m_Waiting.erase(m_Waiting.begin());
    lock.unlock();
    notice();
    return true;
}

void TestNotices::Deliver(int threads) {
    OnThreads(threads, [this](int /*thread*/) {
        while (GiveNext()) {
        }
    });
}

EResult TestEMail::SendMessage(EString name, EMailCompletion completion, void* context, EONEVENTSTRUCT* record) {
    const InKernel here;
    if (m_RefusedSends.count(m_nSends++) != 0) {
        return RC_MISSING;
    }
    SentMail mail{Narrow(name), m_Definitions.at(Narrow(name)), {}, record != nullptr};
    std::istringstream paths(mail.m_Attachments);
    for (std::string path; m_bKeepContents && std::getline(paths, path, ';');) {
        mail.m_Contents[path] = ReadWhole(path);
    }
    m_Sent.push_back(std::move(mail));
    m_Notices.Take([=] { completion(EMAIL_SENT, context); });
    return RC_OK;
}

EResult TestUpload::UploadFiles(EUploadFiles* files, EString* parameter1, EString* parameter2, EString* parameter3,
                                unsigned long context, ISMListener* listener) {
    const InKernel here;
    if (m_bRefuses) {
        return RC_MISSING;
    }
    Upload upload;
    for (auto position = files->GetHeadPosition(); position != nullptr;) {
        const std::string path = Narrow(static_cast<EUploadFile*>(files->GetNext(position))->m_Path);
        upload.m_Paths.push_back(path);
        upload.m_Contents[path] = m_bKeepContents ? ReadWhole(path) : "";
    }
    for (const EString* parameter : {parameter1, parameter2, parameter3}) {
        upload.m_Parameters.push_back(parameter != nullptr ? Narrow(*parameter) : "(null)");
    }
    m_Uploads.push_back(std::move(upload));
    m_nContext = context;
    m_Notices.Take([=] { listener->OnUploadComplete(context, 0); });
    return RC_OK;
}

EResult TestKernel::GetInterface(unsigned long id, void** out) {
    const InKernel here;
    if (m_OnLookUp) {
        m_OnLookUp(id);
    }
    const std::map<unsigned long, void*> interfaces{
        {IID_ERROR_REPORTER, static_cast<IErrorReporter*>(&m_Reporter)},
        {IID_EMAIL_SERVICE, static_cast<IEMailService*>(&m_EMail)},
        {IID_ACTION_REGISTRY, static_cast<IActionRegistry*>(&m_Actions)},
        {IID_NAME_SERVICE, static_cast<INameService*>(&m_Names)},
        {IID_KERNEL_CONTROL, static_cast<IKernelControl*>(&m_Control)},
        {IID_STRING_TABLE, static_cast<IStringTable*>(&m_Strings)},
        {IID_UPLOAD_SERVICE, static_cast<IUploadService*>(&m_Upload)},
    };
    const auto found = interfaces.find(id);
    const bool answered = found != interfaces.end() && m_Missing.count(id) == 0;
    *out = answered ? found->second : nullptr;
    return answered ? RC_OK : RC_MISSING;
}
