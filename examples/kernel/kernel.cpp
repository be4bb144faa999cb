// The smallest kernel that runs the log file service: docs/embedding.md explains it. It loads the module, reports, makes a
// warm restart, and leaves its log files in the working directory.

#include "base/Contract.h"
#include "base/EFileIO.h"
#include "base/EONEVENTSTRUCT.h"
#include "base/EPersistent.h"
#include "base/ETime.h"
#include "base/EUploadFiles.h"
#include "base/EUtility.h"
#include "base/IAction.h"
#include "base/IActionRegistry.h"
#include "base/IErrorReporter.h"
#include "base/IKernelControl.h"
#include "base/IKernelService.h"
#include "base/ILogFile.h"
#include "base/INameService.h"
#include "base/ISMListener.h"
#include "base/IStringTable.h"
#include "base/IUploadService.h"
#include "base/InterfaceIds.h"

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <future>
#include <map>
#include <stdexcept>
#include <string>

#include <dlfcn.h>

namespace {

// A real kernel has its configuration in a directory of its own: EPersistent::SetDirectory.
constexpr char SECTION[] = R"({ "version": 3, "dateFormat": "YYYY-MM-DD", "timeFormat": "HH:mm:SS.sss", "fileSpecs": [
  { "type": "EFileSpec", "name": "KernelLog", "logPath": "", "fileName": "kernel-%i.log", "maxFileSize": 100000,
    "numFiles": 3, "fileFormat": 0, "unicode": 0, "deliveryMode": 1, "keepCopy": 0, "mailName": "" },
  { "type": "EFileSpec", "name": "Alarms", "logPath": ".", "fileName": "alarms-%i.csv", "maxFileSize": 100000,
    "numFiles": 3, "fileFormat": 1, "unicode": 0, "deliveryMode": 1, "keepCopy": 0, "mailName": "" },
  { "type": "EFileSpec", "name": "Trend", "logPath": ".", "fileName": "trend-%i.csv", "maxFileSize": 100000,
    "numFiles": 3, "fileFormat": 1, "unicode": 0, "deliveryMode": 2, "keepCopy": 0, "mailName": "" } ] })";

struct Kernel : IKernelBase,
                IErrorReporter,
                IActionRegistry,
                INameService,
                IKernelControl,
                IStringTable,
                IUploadService {
    // There is no IID_EMAIL_SERVICE: this kernel sends no e-mails.
    EResult GetInterface(unsigned long id, void** out) override {
        std::map<unsigned long, void*> interfaces = {{IID_ERROR_REPORTER, static_cast<IErrorReporter*>(this)},
                                                     {IID_ACTION_REGISTRY, static_cast<IActionRegistry*>(this)},
                                                     {IID_NAME_SERVICE, static_cast<INameService*>(this)},
                                                     {IID_KERNEL_CONTROL, static_cast<IKernelControl*>(this)},
                                                     {IID_STRING_TABLE, static_cast<IStringTable*>(this)},
                                                     {IID_UPLOAD_SERVICE, static_cast<IUploadService*>(this)}};
        *out = interfaces[id]; // null when there is none
        return *out != nullptr ? RC_OK : RC_NOT_FOUND;
    }

    // The error reporter. A real one has a text for each number of base/Messages.h.
    EResult Report(int level, int, int number, const wchar_t* text) override {
        std::fprintf(stderr, "message %d, level %d: %s\n", number, level, Narrow(OrEmpty(text)).c_str());
        return RC_OK;
    }

    // The action registry.
    EResult RegisterAction(const wchar_t* name, IAction* action) override {
        m_Actions[name] = action; // void after Stop; the next service registers its own
        return RC_OK;
    }

    // The name service. A kernel with several identifiers (plants, lines) restores the section once for each, and makes
    // "Alarms" of number 7 into "Alarms@7" and back. This one leaves names alone.
    EResult QualifyName(int, EString*) override { return RC_OK; }
    EResult ParseName(EString*, int*) override { return RC_OK; }
    EResult ParseNameText(const wchar_t*, int*) override { return RC_OK; } // asked for every record
    EResult GetUploadParameters(int, EString*, EString*, EString*) override { return RC_NOT_FOUND; }
    EResult PreparePath(int, EString* path) override {
        return EFileIO::CreateRecursiveDir(*path) != 0 ? RC_OK : RC_NOT_MADE;
    }
    EResult CheckId(int, bool* accepted) override {
        *accepted = true;
        return RC_OK;
    }

    // Kernel control. The operations are called when the saved requests cannot be read; a real kernel keeps their file.
    EResult IsRestoreWanted() override { return 1; } // WR_SAVE alone makes the file, WR_DISCARD removes it
    EResult Operation9(unsigned long) override { return RC_OK; }
    EResult Operation6(unsigned long) override { return RC_OK; }
    EResult Operation3() override { return RC_OK; }
    EResult Operation5() override { return RC_OK; }

    // The string table: the headings of the columns.
    const wchar_t* GetString(unsigned long number, unsigned long) override {
        static constexpr const wchar_t* TEXTS[] = {L"Date",   L"Time",   L"Name",         L"Text",         L"Source",
                                                   L"Detail", L"Active", L"Acknowledged", L"Alarm number", L"Value"};
        return number >= HEADING_DATE && number <= HEADING_ALARM_LAST ? TEXTS[number - HEADING_DATE] : nullptr;
    }

    // The upload service. The module deletes the files after the notice, and its worker stands still meanwhile. A real
    // one copies them to where they are safe, gives the notice, and sends them on a thread of its own, again and again.
    EResult UploadFiles(EUploadFiles* files, EString*, EString*, EString*, unsigned long context,
                        ISMListener* listener) override {
        for (auto position = files->GetHeadPosition(); position != nullptr;) {
            const std::filesystem::path from = Narrow(static_cast<EUploadFile*>(files->GetNext(position))->m_Path);
            const std::filesystem::path to = "uploaded-" + from.filename().string();
            std::filesystem::copy_file(from, to, std::filesystem::copy_options::overwrite_existing);
        }
        listener->OnUploadComplete(context, 0);
        m_Uploaded.set_value();
        return RC_OK;
    }

    std::map<std::wstring, IAction*> m_Actions;
    std::promise<void> m_Uploaded;
};

void Check(EResult result) {
    if (Failed(result)) {
        throw std::runtime_error("result " + std::to_string(result)); // see the page for what to do about each
    }
}

// The loaded module and its service.
struct Module {
    explicit Module(Kernel& kernel) {
        if (m_pLibrary == nullptr || *static_cast<const std::int32_t*>(dlsym(m_pLibrary, "LOGFILE_VERSION")) != 1) {
            throw std::runtime_error("no module, or one of another version");
        }
        const auto init = reinterpret_cast<void* (*)(IKernelBase*)>(dlsym(m_pLibrary, "kvLogFileInitService"));
        m_pService = static_cast<IKernelService*>(init(&kernel)); // the service begins with its IKernelService
    }
    Module(Module&&) = delete;
    ~Module() {
        EFileIO::SetDeleting(false); // or Stop deletes what was not delivered yet
        m_pService->Stop();
        EFileIO::SetDeleting(true);
        EPersistent::RemoveFactories(); // they are code of the module
        dlclose(m_pLibrary);
    }
    void Start() {
        Check(m_pService->PrepareToStart());
        Check(m_pService->Restore(0, -1)); // fetches the name service; -1 reads nothing
        Check(m_pService->Restore(0));     // reads kvLogFile.json
        Check(m_pService->PreStart());     // reads kvLogFile.warm, where WR_SAVE has put what waited
        Check(m_pService->WarmRestart(WR_DISCARD, nullptr));
        Check(m_pService->Start());
        m_pService->GetInterface(IID_LOG_FILE, &m_pLogFile);
    }
    ILogFile& LogFile() { return *static_cast<ILogFile*>(m_pLogFile); }

    void* m_pLibrary = dlopen(MODULE_PATH, RTLD_NOW | RTLD_LOCAL);
    IKernelService* m_pService;
    void* m_pLogFile = nullptr;
};

EONEVENTSTRUCT MakeRecord(const wchar_t* name, const wchar_t* text, double value = 0) {
    EONEVENTSTRUCT record; // refers to the texts, and a call copies them
    ETime::GetTimeStamp(&record.m_TimeStamp);
    record.m_pszName = name;
    record.m_pszText = text;
    record.m_Value.SetDouble(value);
    return record;
}

} // namespace

// A failure ends this kernel with its message.
int main() {
    std::ofstream("kvLogFile.json") << SECTION;
    EPersistent::SetErrorHook([](const wchar_t* message) { std::fprintf(stderr, "%s\n", Narrow(message).c_str()); });
    EFileIO::SetFailureHook([](const char* name, int error) { std::fprintf(stderr, "%s: error %d\n", name, error); });
    Kernel kernel;
    EString alarms = L"Alarms";
    EString trend = L"Trend";
    EString deliver = ACTION_NAME_DELIVERY;
    EONEVENTSTRUCT started = MakeRecord(L"kernel", L"started");
    EONEVENTSTRUCT hot = MakeRecord(L"Pump 1", L"too hot", 81.5);
    EONEVENTSTRUCT values[] = {MakeRecord(L"Inlet", nullptr, 20.5), MakeRecord(L"Outlet", nullptr, 18.25)};
    {
        Module module(kernel);
        module.Start();
        Check(module.LogFile().ReportEvent(&started));
        Check(module.LogFile().LogAlarm(alarms, &hot));
        Check(module.LogFile().LogSnapShot(trend, values, 2));
        Check(module.m_pService->PrepareToStop());      // the worker ends; what it has not written stays in the queue
        Check(module.LogFile().LogAlarm(alarms, &hot)); // and so does what comes now
        Check(module.m_pService->WarmRestart(WR_SAVE, nullptr));
    }
    // From here on as if in another process.
    Module module(kernel);
    module.Start();
    Check(module.LogFile().ReportEvent(&started)); // also wakes the worker for what was restored
    Check(kernel.m_Actions.at(ACTION_NAME_DELIVERY)->Invoke(deliver, trend, nullptr, 1, &started, nullptr));
    kernel.m_Uploaded.get_future().wait_for(std::chrono::minutes(1)); // in their order: all before it is written
}
