#pragma once

#include "base/EMailMessage.h"
#include "base/EUploadFiles.h"
#include "base/IActionRegistry.h"
#include "base/IEMailService.h"
#include "base/IErrorReporter.h"
#include "base/IKernelBase.h"
#include "base/IKernelControl.h"
#include "base/INameService.h"
#include "base/ISMListener.h"
#include "base/IStringTable.h"
#include "base/IUploadService.h"
#include "base/InterfaceIds.h"
#include "tests/Reports.h"
#include "tests/kernel/InKernel.h"

#include <deque>
#include <functional>
#include <mutex>
#include <set>

// A kernel for tests: serves every interface that the module asks for, does what the test has scripted, and keeps what
// it was told. All texts are UTF-8. The scripts are set before the threads start; the records are read after they ended.

struct ReportedMessage {
    int m_nLevel;
    int m_nSource;
    int m_nNumber;
    std::string m_Text;
    bool operator==(const ReportedMessage&) const = default;
};

struct TestReporter : IErrorReporter {
    EResult Report(int level, int source, int messageNumber, const wchar_t* text) override {
        m_OnReport();
        const std::lock_guard<std::mutex> lock(m_Mutex);
        m_Messages.push_back({level, source, messageNumber, text != nullptr ? Narrow(text) : ""});
        return RC_OK;
    }
    const std::vector<ReportedMessage>& Messages() const { return m_Messages; }
    auto Count(int number) const { return std::ranges::count(m_Messages, number, &ReportedMessage::m_nNumber); }

    std::function<void()> m_OnReport = [] {}; // called while a message is reported
    std::vector<ReportedMessage> m_Messages;
    std::mutex m_Mutex;
};

struct TestNames : INameService {
    EResult QualifyName(int id, EString* name) override {
        m_OnQualify();
        *name += id >= 0 ? Wide("@" + std::to_string(id)) : EString();
        return RC_OK;
    }
    EResult ParseName(EString* name, int* id) override {
        const std::string text = Narrow(*name);
        if (const auto at = text.rfind('@'); at != std::string::npos) {
            *id = std::stoi(text.substr(at + 1));
            *name = Wide(text.substr(0, at));
        }
        return RC_OK;
    }
    EResult ParseNameText(const wchar_t* name, int* id) override {
        EString copy = name;
        m_Parsed += Narrow(copy) + ';';
        return ParseName(&copy, id);
    }
    EResult GetUploadParameters(int id, EString* parameter1, EString* parameter2, EString* parameter3) override {
        const InKernel here("GetUploadParameters");
        *parameter1 = L"host";
        *parameter2 = L"user";
        *parameter3 = Wide("id" + std::to_string(id));
        return m_bUploadParameters ? RC_OK : RC_MISSING;
    }
    EResult PreparePath(int /*id*/, EString* path) override {
        if (m_bPreparesPaths) {
            std::filesystem::create_directories(Narrow(*path));
        }
        return m_bPreparesPaths ? RC_OK : RC_MISSING;
    }
    EResult CheckId(int id, bool* accepted) override {
        *accepted = m_RefusedIds.count(id) == 0;
        return RC_OK;
    }

    std::set<int> m_RefusedIds;
    bool m_bUploadParameters = true;           // "host", "user" and "id" followed by the identifier
    bool m_bPreparesPaths = true;              // false: PreparePath fails
    std::function<void()> m_OnQualify = [] {}; // called while a log file's items are read
    std::string m_Parsed;                      // the names of processed records, each followed by ';'
};

struct TestActions : IActionRegistry {
    EResult RegisterAction(const wchar_t* name, IAction* action) override {
        m_Registered.emplace_back(Narrow(name), action);
        return m_Refused[Narrow(name)];
    }

    std::map<std::string, EResult> m_Refused;
    std::vector<std::pair<std::string, IAction*>> m_Registered;
};

struct TestControl : IKernelControl {
    EResult Operation3() override { return Note("3"); }
    EResult Operation5() override { return Note("5"); }
    EResult Operation6(unsigned long value) override { return Note("6(" + std::to_string(value) + ')'); }
    EResult IsRestoreWanted() override { return m_bRestoreWanted ? 1 : 0; }
    EResult Operation9(unsigned long value) override { return Note("9(" + std::to_string(value) + ')'); }

    EResult Note(const std::string& call) {
        m_Calls.push_back(call);
        return RC_OK;
    }

    bool m_bRestoreWanted = false;
    std::vector<std::string> m_Calls; // "9(1)", "6(0)", "3", "5"
};

// "H" followed by the number: H956, H957, ...
struct TestStrings : IStringTable {
    const wchar_t* GetString(unsigned long number, unsigned long /*reserved*/) override {
        m_Text.Format(L"H%lu", number);
        return m_Text;
    }

    EString m_Text; // only valid until the next call, as callers must expect
};

// When and where the notices of sendings are given.
struct TestNotices {
    enum class When { Inside, Later, OutOfOrder, Twice, Mixed };

    // Inside: in the calling thread, at once. Otherwise GiveNext or Deliver gives it. Mixed: the first three by turns.
    void Take(const std::function<void()>& notice) {
        const When when = m_When == When::Mixed ? static_cast<When>(m_nTaken++ % 3) : m_When;
        if (when == When::Inside) {
            InKernel::Leave(notice);
            return;
        }
        const std::lock_guard<std::mutex> lock(m_Mutex);
        m_Waiting.insert(when == When::OutOfOrder ? m_Waiting.begin() : m_Waiting.end(), when == When::Twice ? 2 : 1,
                         notice);
    }
    // Gives the next one that has been taken, in the calling thread; false when there is none.
    bool GiveNext() {
        std::unique_lock<std::mutex> lock(m_Mutex);
        if (m_Waiting.empty()) {
            return false;
        }
        const std::function<void()> notice = std::move(m_Waiting.front());
        m_Waiting.pop_front();
        lock.unlock();
        notice();
        return true;
    }
    // Gives what has been taken, from `threads` other threads at a time, and returns when all are given.
    void Deliver(int threads = 1) {
        OnThreads(threads, [this](int /*thread*/) {
            while (GiveNext()) {
            }
        });
    }

    When m_When = When::Later;
    std::mutex m_Mutex;
    std::deque<std::function<void()>> m_Waiting;
    int m_nTaken = 0;
};

struct Sending {
    std::string m_To;    // the definition's name, or the upload's parameters
    std::string m_Paths; // of the attachments or files, each behind a ';', also of those that are not there
    bool m_bWithRecord = false;
    std::map<std::string, std::string> m_Contents = FilesOf(m_Paths); // path to the bytes it had then

    static std::map<std::string, std::string> FilesOf(const std::string& paths) {
        std::map<std::string, std::string> contents;
        std::istringstream each(paths);
        for (std::string path; std::getline(each, path, ';');) {
            if (std::filesystem::exists(path)) {
                contents[path] = ReadWhole(path);
            }
        }
        return contents;
    }
};

struct TestEMail : IEMailService {
    EResult SendMessage(EString name, EMailCompletion completion, void* context, EONEVENTSTRUCT* record) override {
        const InKernel here("SendMessage");
        if (m_RefusedSends.count(m_nSends++) != 0) {
            return RC_MISSING;
        }
        m_Sent.push_back({Narrow(name), m_Definitions.at(Narrow(name)), record != nullptr});
        m_Notices.Take([=] { completion(EMAIL_SENT, context); });
        return RC_OK;
    }
    EMailMessage* CreateMessage() override {
        const InKernel here("CreateMessage");
        m_nRecords += m_bGivesRecords ? 1 : 0;
        return m_bGivesRecords ? new EMailMessage : nullptr;
    }
    void ReleaseMessage(EMailMessage* message) override {
        --m_nRecords;
        delete message;
        const InKernel here("ReleaseMessage");
    }
    EResult StoreMessage(EMailMessage* message) override {
        const InKernel here("StoreMessage");
        m_Definitions[Narrow(message->m_Name)] = Narrow(message->m_Attachments);
        return RC_OK;
    }
    EResult LoadMessage(EMailMessage* message) override {
        const InKernel here("LoadMessage");
        if (!m_Definitions.contains(Narrow(message->m_Name))) {
            return RC_NOT_FOUND;
        }
        message->m_Attachments = Wide(m_Definitions[Narrow(message->m_Name)]);
        return RC_OK;
    }

    std::map<std::string, std::string> m_Definitions; // name to attachment list
    std::set<int> m_RefusedSends;                     // by their number, from 0
    bool m_bGivesRecords = true;
    TestNotices m_Notices;

    std::vector<Sending> m_Sent; // those that were started
    int m_nSends = 0;            // and those that were refused
    int m_nRecords = 0;          // created and not released
};

struct TestUpload : IUploadService {
    EResult UploadFiles(EUploadFiles* files, EString* parameter1, EString* parameter2, EString* parameter3,
                        unsigned long context, ISMListener* listener) override {
        const InKernel here("UploadFiles");
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
        m_Sent.push_back({parameters, paths});
        m_Notices.Take([=] { listener->OnUploadComplete(context, 0); });
        return RC_OK;
    }

    bool m_bRefuses = false;
    TestNotices m_Notices;
    std::vector<Sending> m_Sent; // those that were started
};

struct TestKernel : IKernelBase {
    EResult GetInterface(unsigned long id, void** out) override {
        const InKernel here; // what cannot be looked up is missing for good, and no fault
        m_OnLookUp(id);
        std::map<unsigned long, void*> interfaces{
            {IID_ERROR_REPORTER, &m_Reporter}, {IID_EMAIL_SERVICE, &m_EMail},    {IID_ACTION_REGISTRY, &m_Actions},
            {IID_NAME_SERVICE, &m_Names},      {IID_KERNEL_CONTROL, &m_Control}, {IID_STRING_TABLE, &m_Strings},
            {IID_UPLOAD_SERVICE, &m_Upload}}; // each class has one base, which stands at its beginning
        *out = m_Missing.contains(id) ? nullptr : interfaces[id];
        return *out != nullptr ? RC_OK : RC_MISSING;
    }

    TestReporter m_Reporter;
    TestNames m_Names;
    TestActions m_Actions;
    TestControl m_Control;
    TestStrings m_Strings;
    TestEMail m_EMail;
    TestUpload m_Upload;

    std::set<unsigned long> m_Missing;                           // interfaces that this gateway has not
    std::function<void(unsigned long)> m_OnLookUp = [](auto) {}; // called while a look-up is under way
};
