#include "tests/kernel/TestKernel.h"

#include "base/EUploadFile.h"
#include "base/EUploadFiles.h"
#include "base/EUtility.h"
#include "base/InterfaceIds.h"
#include "tests/TempDir.h"
#include "tests/kernel/InKernel.h"

#include <algorithm>
#include <sstream>

std::string Narrow(const wchar_t* text) {
    EByteArray bytes;
    EUtility::Utf8Encode(text, bytes);
    return {bytes.GetData(), bytes.GetData() + bytes.GetSize()};
}

EResult TestReporter::Report(int level, int source, int messageNumber, const wchar_t* text) {
    const InKernel here;
    const std::lock_guard<std::mutex> lock(m_Mutex);
    m_Messages.push_back({level, source, messageNumber, text != nullptr ? Narrow(text) : ""});
    return RC_OK;
}

std::vector<ReportedMessage> TestReporter::Messages() const {
    const std::lock_guard<std::mutex> lock(m_Mutex);
    return m_Messages;
}

int TestReporter::Count(int messageNumber) const {
    const auto messages = Messages();
    return static_cast<int>(std::count_if(messages.begin(), messages.end(),
                                          [&](const auto& message) { return message.m_nNumber == messageNumber; }));
}

EResult TestNames::QualifyName(int id, EString* name) {
    const InKernel here;
    if (id >= 0) {
        *name += Wide("@" + std::to_string(id));
    }
    return RC_OK;
}

EResult TestNames::ParseName(EString* name, int* id) {
    const InKernel here;
    const std::string text = Narrow(*name);
    if (const auto at = text.rfind('@'); at != std::string::npos) {
        *id = std::stoi(text.substr(at + 1));
        *name = Wide(text.substr(0, at));
    }
    return RC_OK;
}

EResult TestNames::ParseNameText(const wchar_t* name, int* id) {
    const InKernel here;
    EString copy = name;
    return ParseName(&copy, id);
}

EResult TestNames::GetUploadParameters(int id, EString* parameter1, EString* parameter2, EString* parameter3) {
    const InKernel here;
    if (!m_bUploadParameters) {
        return RC_MISSING;
    }
    *parameter1 = L"host";
    *parameter2 = L"user";
    *parameter3 = Wide("id" + std::to_string(id));
    return RC_OK;
}

EResult TestNames::PreparePath(int /*id*/, EString* path) {
    const InKernel here;
    if (!m_bPreparesPaths) {
        return RC_MISSING;
    }
    std::filesystem::create_directories(Narrow(*path));
    return RC_OK;
}

EResult TestNames::CheckId(int id, bool* accepted) {
    const InKernel here;
    *accepted = m_RefusedIds.count(id) == 0;
    return RC_OK;
}

EResult TestActions::RegisterAction(const wchar_t* name, IAction* action) {
    const InKernel here;
    m_Registered.emplace_back(Narrow(name), action);
    const auto refused = m_Refused.find(Narrow(name));
    return refused != m_Refused.end() ? refused->second : RC_OK;
}

EResult TestControl::Operation3() {
    const InKernel here;
    m_Calls.emplace_back("3");
    return RC_OK;
}

EResult TestControl::Operation5() {
    const InKernel here;
    m_Calls.emplace_back("5");
    return RC_OK;
}

EResult TestControl::Operation6(unsigned long value) {
    const InKernel here;
    m_Calls.push_back("6(" + std::to_string(value) + ")");
    return RC_OK;
}

EResult TestControl::Operation9(unsigned long value) {
    const InKernel here;
    m_Calls.push_back("9(" + std::to_string(value) + ")");
    return RC_OK;
}

const wchar_t* TestStrings::GetString(unsigned long number, unsigned long /*reserved*/) {
    const InKernel here;
    m_Text.Format(L"H%lu", number);
    return m_Text;
}

void TestNotices::Take(std::function<void()> notice) {
    const When when = m_When == When::Mixed ? static_cast<When>(m_nTaken++ % 4) : m_When;
    if (when == When::Inside) {
        InKernel::Leave(notice);
        return;
    }
    if (when == When::Never) {
        return;
    }
    const std::lock_guard<std::mutex> lock(m_Mutex);
    if (when == When::Twice) {
        m_Waiting.push_back(notice);
    }
    m_Waiting.insert(when == When::OutOfOrder ? m_Waiting.begin() : m_Waiting.end(), std::move(notice));
}

bool TestNotices::GiveNext() {
    std::function<void()> notice;
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        if (m_Waiting.empty()) {
            return false;
        }
        notice = std::move(m_Waiting.front());
        m_Waiting.erase(m_Waiting.begin());
    }
    notice();
    return true;
}

void TestNotices::Deliver(int threads) {
    std::vector<std::thread> givers;
    for (int i = 0; i < threads; ++i) {
        givers.emplace_back([this] {
            while (GiveNext()) {
            }
        });
    }
    for (std::thread& giver : givers) {
        giver.join();
    }
}

int TestNotices::Waiting() const {
    const std::lock_guard<std::mutex> lock(m_Mutex);
    return static_cast<int>(m_Waiting.size());
}

EResult TestEMail::SendMessage(EString name, EMailCompletion completion, void* context, EONEVENTSTRUCT* record) {
    const InKernel here;
    if (m_RefusedSends.count(m_nSends++) != 0) {
        return RC_MISSING;
    }
    SentMail mail{Narrow(name), m_Definitions.at(Narrow(name)), {}, record != nullptr};
    std::istringstream paths(mail.m_Attachments);
    for (std::string path; m_bKeepContents && std::getline(paths, path, ';');) {
        if (!path.empty()) {
            mail.m_Contents[path] = ReadWhole(path);
        }
    }
    m_Sent.push_back(std::move(mail));
    m_pCompletion = completion;
    m_pContext = context;
    m_Notices.Take([=] { completion(EMAIL_SENT, context); });
    return RC_OK;
}

EMailMessage* TestEMail::CreateMessage() {
    const InKernel here;
    if (!m_bGivesRecords) {
        return nullptr;
    }
    ++m_nRecords;
    return new EMailMessage;
}

void TestEMail::ReleaseMessage(EMailMessage* message) {
    const InKernel here;
    --m_nRecords;
    delete message;
}

EResult TestEMail::StoreMessage(EMailMessage* message) {
    const InKernel here;
    m_Definitions[Narrow(message->m_Name)] = Narrow(message->m_Attachments);
    return RC_OK;
}

EResult TestEMail::LoadMessage(EMailMessage* message) {
    const InKernel here;
    const auto found = m_Definitions.find(Narrow(message->m_Name));
    if (found == m_Definitions.end()) {
        return RC_NOT_FOUND;
    }
    message->m_Attachments = Wide(found->second);
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
        if (m_bKeepContents) {
            upload.m_Contents[path] = ReadWhole(path);
        }
    }
    for (const EString* parameter : {parameter1, parameter2, parameter3}) {
        upload.m_Parameters.push_back(parameter != nullptr ? Narrow(*parameter) : "(null)");
    }
    m_Uploads.push_back(std::move(upload));
    m_pListener = listener;
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
