#include "gateway/Gateway.h"

#include "base/EFileIO.h"
#include "base/EJsonText.h"
#include "base/EPersistent.h"
#include "base/IAction.h"
#include "base/IKernelService.h"
#include "base/SavedRequests.h"
#include "gateway/Console.h"
#include "gateway/Leftovers.h"
#include "gateway/Text.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <mutex>
#include <stdexcept>
#include <system_error>

namespace {

void ThrowIfFailed(EResult result, const std::string& what) {
    if (Failed(result)) {
        char code[16];
        std::snprintf(code, sizeof code, "0x%08X", static_cast<unsigned>(result));
        throw std::runtime_error(what + " failed (" + code + ")");
    }
}

bool ReadRequest(EFileIO& file, Report& request) {
    EString log;
    std::uint32_t action = 0;
    std::uint32_t records = 0;
    if (RestoreRequestHead(&file, log, action, records) == 0 || action >= ACTIONS.size()) {
        return false;
    }
    request.m_Log = Narrow(log);
    request.m_Action = ACTIONS[action];
    request.m_Kind = action == ACTION_LOG_ALARM ? Report::Kind::Alarm : Report::Kind::Action; // whoever's it is
    request.m_Records.resize(records);
    return std::all_of(request.m_Records.begin(), request.m_Records.end(),
                       [&](EONEVENTSTRUCT& record) { return record.Restore(&file) != 0; });
}

// The saved requests that can be read; `whole` is false when the file is damaged.
std::vector<Report> ReadRequests(const std::filesystem::path& path, bool& whole) {
    EFileIO file(Widen(path.string()), EFileIO::OPEN_FOR_READING);
    file.Buffer();
    std::vector<Report> requests;
    std::uint32_t count = 0;
    for (whole = file.IsOpen() && file.ReadNumber(count) != 0; whole && requests.size() < count;) {
        Report request;
        whole = ReadRequest(file, request);
        if (whole) {
            requests.push_back(std::move(request));
        }
    }
    return requests;
}

std::atomic<std::uint64_t> g_nFailedWrites = 0;

// The module drops a row that cannot be written without a message.
void OnFailedWrite(const char* name, int error) {
    static std::mutex mutex;
    static std::chrono::steady_clock::time_point next;
    if (std::string_view(name).find(WorkDirectory::NAME) != std::string_view::npos) {
        return; // the list of what waits: no row
    }
    ++g_nFailedWrites;
    const std::lock_guard<std::mutex> lock(mutex);
    if (const auto now = std::chrono::steady_clock::now(); now >= next) { // a full disk fails every row
        next = now + std::chrono::seconds(10);
        Console::Say("error: " + std::string(name) + ": " + std::generic_category().message(error) +
                     "; rows are lost, " + std::to_string(g_nFailedWrites) + " so far");
    }
}

} // namespace

Gateway::Gateway(const Configuration& configuration, const std::filesystem::path& directory,
                 const std::filesystem::path& module)
    : m_Directory(std::filesystem::absolute(directory)),
      m_Work(directory),
      m_Outbox(configuration.m_Mail, configuration.m_Upload),
      m_Kernel(configuration, m_Outbox),
      m_Module(module, m_Kernel),
      m_Saved(m_Directory / Narrow(m_Module.SavedRequestsName())),
      m_Waiting(m_Work.Path() / m_Saved.filename()) {
    m_Kernel.SetService(&m_Module.Service());
    for (const LogFileSettings& file : configuration.m_LogFiles) {
        for (const std::string& prefix : {file.Directory(), file.LogDirectory()}) { // may end with letters of the name
            std::filesystem::create_directories(std::filesystem::absolute(prefix + "x").parent_path());
        }
        file.RepairCurrent();
    }
    HandOverLeftovers(configuration, m_Outbox);
    Start();
}

void Gateway::Start() {
    IKernelService& service = m_Module.Service();
    EPersistent::SetErrorHook([](const wchar_t* message) { Console::Say("error: " + Narrow(message)); });
    EFileIO::SetFailureHook(&OnFailedWrite);
    EPersistent::SetDirectory(Widen(m_Directory.string()));
    ThrowIfFailed(service.PrepareToStart(), "preparing the module");
    ThrowIfFailed(service.Restore(0, NO_IDENTIFIER), "preparing the module"); // for the names; reads nothing
    ThrowIfFailed(service.Restore(0), "reading the configuration");
    // From here on the module writes its waiting requests elsewhere, not over the saved ones.
    EPersistent::SetDirectory(Widen(m_Work.Path().string()));
    StartWithSavedRequests();
}

// The saved requests are reported again after the start. The service could restore them itself, but has no default kernel
// log before it is started, and does not wake its worker for them. The file is removed before the first request is
// reported: a kill in between loses requests, but writes none twice.
void Gateway::StartWithSavedRequests() {
    ThrowIfFailed(m_Module.Service().PreStart(), "starting the module");
    ThrowIfFailed(m_Module.Service().Start(), "starting the module");
    m_bRunning = true;
    std::vector<Report> requests;
    if (std::filesystem::exists(m_Saved)) {
        bool whole = false;
        requests = ReadRequests(m_Saved, whole);
        if (whole) {
            std::filesystem::remove(m_Saved);
        } else {
            const std::string damaged = m_Saved.string() + ".damaged";
            std::filesystem::rename(m_Saved, damaged);
            Console::Say("error: the saved requests could not all be read back; their file is kept as " + damaged);
        }
    }
    int restored = 0;
    for (Report& request : requests) {
        restored += Failed(Submit(request)) ? 0 : 1; // unless its log file is no longer configured
    }
    if (restored > 0) {
        Console::Say(Plural(restored, "saved request") + " taken up again");
    }
}

bool Gateway::Submit(Report& report, std::string& reason) {
    const EResult result = Submit(report);
    if (!Failed(result)) {
        return true;
    }
    const std::string log = EJsonText::Quote(report.m_Log);
    reason = result == RC_NO_LOG_FILE ? "there is no log file " + log
             : result == RC_NO_ACTION ? "log file " + log + " does not deliver"
                                      : "log file " + log + " does not take the report";
    return false;
}

EResult Gateway::Submit(Report& report) {
    EONEVENTSTRUCT* const records = report.m_Records.data();
    EString log = Widen(report.m_Log);
    switch (report.m_Kind) {
    case Report::Kind::Event:
        return m_Module.LogFile().ReportEvent(records);
    case Report::Kind::Alarm:
        return m_Module.LogFile().LogAlarm(log, records);
    case Report::Kind::SnapShot:
        return m_Module.LogFile().LogSnapShot(log, records, report.m_Records.size());
    case Report::Kind::Action:
        break;
    }
    IAction* const action = m_Kernel.FindAction(report.m_Action);
    EString name = Widen(report.m_Action);
    return action != nullptr ? action->Invoke(name, log, nullptr, report.m_Records.size(), records, nullptr)
                             : RC_NO_ACTION;
}

std::optional<std::uint32_t> Gateway::CountWaiting() {
    if (Failed(m_Module.Service().WarmRestart(WR_SAVE, nullptr))) {
        return std::nullopt;
    }
    EFileIO file(Widen(m_Waiting.string()), EFileIO::OPEN_FOR_READING);
    std::uint32_t count = 0;
    return file.IsOpen() && file.ReadNumber(count) != 0 ? std::optional(count) : std::nullopt;
}

bool Gateway::End(bool save) {
    m_Module.Service().PrepareToStop();
    m_bRunning = false;
    const std::optional<std::uint32_t> waiting = save ? CountWaiting() : 0;
    if (waiting == 0U) {
        return true;
    }
    std::error_code error = std::make_error_code(std::errc::io_error);
    if (waiting) {
        std::filesystem::rename(m_Waiting, m_Saved, error); // complete, or not there at all
    }
    Console::Say(error ? "error: the waiting requests could not be saved, and are lost"
                       : Plural(*waiting, "request") + " saved for the next start");
    return !error;
}

std::uint64_t Gateway::FailedWrites() {
    return g_nFailedWrites;
}

Gateway::~Gateway() {
    if (m_bRunning) {
        End(true);
    }
}
