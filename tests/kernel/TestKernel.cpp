#include "tests/kernel/TestKernel.h"

#include "base/EUploadFile.h"
#include "base/EUploadFiles.h"
#include "base/EUtility.h"
#include "base/InterfaceIds.h"
#include "tests/Reports.h"

#include <sstream>

namespace {

Sending ReadSending(const std::string& to, const std::string& paths, bool withRecord) {
    Sending sending{to, paths, {}, withRecord};
    std::istringstream each(paths);
    for (std::string path; std::getline(each, path, ';');) {
        if (std::filesystem::exists(path)) {
            sending.m_Contents[path] = ReadWhole(path);
        }
    }
    return sending;
}

} // namespace

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
    m_Waiting.insert(when == When::OutOfOrder ? m_Waiting.begin() : m_Waiting.end(), when == When::Twice ? 2 : 1,
                     notice);
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
    m_Sent.push_back(ReadSending(Narrow(name), m_Definitions.at(Narrow(name)), record != nullptr));
    m_Notices.Take([=] { completion(EMAIL_SENT, context); });
    return RC_OK;
}

EResult TestUpload::UploadFiles(EUploadFiles* files, EString* parameter1, EString* parameter2, EString* parameter3,
                                unsigned long context, ISMListener* listener) {
    const InKernel here;
    if (m_bRefuses) {
        return RC_MISSING;
    }
    std::string paths;
    for (auto position = files->GetHeadPosition(); position != nullptr;) {
        paths += ';' + Narrow(static_cast<EUploadFile*>(files->GetNext(position))->m_Path);
    }
    std::string parameters;
    for (const EString* parameter : {parameter1, parameter2, parameter3}) {
        parameters += parameter != nullptr ? Narrow(*parameter) + ' ' : "(null) ";
    }
    m_Sent.push_back(ReadSending(parameters, paths, false));
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
