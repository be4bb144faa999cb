#pragma once

#include "base/EMailMessage.h"
#include "base/EString.h"
#include "base/IAction.h"
#include "base/IActionRegistry.h"
#include "base/IEMailService.h"
#include "base/IErrorReporter.h"
#include "base/IKernelControl.h"
#include "base/IKernelService.h"
#include "base/INameService.h"
#include "base/ISMListener.h"
#include "base/IStringTable.h"
#include "base/IUploadService.h"

#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

// A kernel for tests: serves every interface that the module asks for, does what the test has scripted, and keeps what
// it was told. All texts are UTF-8. The scripts are set before the threads start; the records are read after they ended.

struct ReportedMessage {
    int m_nLevel;
    int m_nSource;
    int m_nNumber;
    std::string m_Text;
    bool operator==(const ReportedMessage&) const = default;
};

class TestReporter : public IErrorReporter {
public:
    EResult Report(int level, int source, int messageNumber, const wchar_t* text) override;
    std::vector<ReportedMessage> Messages() const;
    int Count(int messageNumber) const;

private:
    mutable std::mutex m_Mutex;
    std::vector<ReportedMessage> m_Messages;
};

// name@id, as the gateway qualifies names.
class TestNames : public INameService {
public:
    EResult QualifyName(int id, EString* name) override;
    EResult ParseName(EString* name, int* id) override;
    EResult ParseNameText(const wchar_t* name, int* id) override;
    EResult GetUploadParameters(int id, EString* parameter1, EString* parameter2, EString* parameter3) override;
    EResult PreparePath(int id, EString* path) override;
    EResult CheckId(int id, bool* accepted) override;

    std::set<int> m_RefusedIds;
    bool m_bUploadParameters = true; // "host", "user" and "id" followed by the identifier
    bool m_bPreparesPaths = true;    // false: PreparePath fails
};

class TestActions : public IActionRegistry {
public:
    EResult RegisterAction(const wchar_t* name, IAction* action) override;

    std::map<std::string, EResult> m_Refused;
    std::vector<std::pair<std::string, IAction*>> m_Registered;
};

class TestControl : public IKernelControl {
public:
    EResult Operation3() override;
    EResult Operation5() override;
    EResult Operation6(unsigned long value) override;
    EResult IsRestoreWanted() override { return m_bRestoreWanted ? 1 : 0; }
    EResult Operation9(unsigned long value) override;

    bool m_bRestoreWanted = false;
    std::vector<std::string> m_Calls; // "9(1)", "6(0)", "3", "5"
};

// "H" followed by the number: H956, H957, ...
class TestStrings : public IStringTable {
public:
    const wchar_t* GetString(unsigned long number, unsigned long reserved) override;

private:
    EString m_Text; // only valid until the next call, as callers must expect
};

// When and where the notices of sendings are given.
class TestNotices {
public:
    enum class When { Inside, Later, OutOfOrder, Twice, Never, Mixed };

    // Inside: in the calling thread, at once. Never: not at all. Otherwise GiveNext or Deliver gives it. Mixed: each of
    // the first four in turn.
    void Take(std::function<void()> notice);
    // Gives the next one that has been taken, in the calling thread; false when there is none.
    bool GiveNext();
    // Gives what has been taken, from `threads` other threads at a time, and returns when all are given.
    void Deliver(int threads = 1);
    int Waiting() const;

    When m_When = When::Later;

private:
    mutable std::mutex m_Mutex;
    std::vector<std::function<void()>> m_Waiting;
    int m_nTaken = 0;
};

struct SentMail {
    std::string m_Name;
    std::string m_Attachments;                     // as the definition stood
    std::map<std::string, std::string> m_Contents; // attached file (as named) to its bytes
    bool m_bWithRecord;
};

class TestEMail : public IEMailService {
public:
    EResult SendMessage(EString name, EMailCompletion completion, void* context, EONEVENTSTRUCT* record) override;
    EMailMessage* CreateMessage() override;
    void ReleaseMessage(EMailMessage* message) override;
    EResult StoreMessage(EMailMessage* message) override;
    EResult LoadMessage(EMailMessage* message) override;

    std::map<std::string, std::string> m_Definitions; // name to attachment list
    std::set<int> m_RefusedSends;                     // by their number, from 0
    bool m_bGivesRecords = true;
    bool m_bKeepContents = true;
    TestNotices m_Notices;

    std::vector<SentMail> m_Sent;            // those that were started
    int m_nSends = 0;                        // and those that were refused
    int m_nRecords = 0;                      // created and not released
    EMailCompletion m_pCompletion = nullptr; // the last one
    void* m_pContext = nullptr;
};

struct Upload {
    std::vector<std::string> m_Paths;
    std::map<std::string, std::string> m_Contents;
    std::vector<std::string> m_Parameters; // "(null)" for null
};

class TestUpload : public IUploadService {
public:
    EResult UploadFiles(EUploadFiles* files, EString* parameter1, EString* parameter2, EString* parameter3,
                        unsigned long context, ISMListener* listener) override;

    bool m_bRefuses = false;
    bool m_bKeepContents = true;
    TestNotices m_Notices;
    std::vector<Upload> m_Uploads;      // those that were started
    ISMListener* m_pListener = nullptr; // of the last one
    unsigned long m_nContext = 0;
};

class TestKernel : public IKernelBase {
public:
    EResult GetInterface(unsigned long id, void** out) override;

    TestReporter m_Reporter;
    TestNames m_Names;
    TestActions m_Actions;
    TestControl m_Control;
    TestStrings m_Strings;
    TestEMail m_EMail;
    TestUpload m_Upload;

    std::set<unsigned long> m_Missing;                // interfaces that this gateway has not
    std::function<void(unsigned long id)> m_OnLookUp; // called while a look-up is under way
};

std::string Narrow(const wchar_t* text); // UTF-8
