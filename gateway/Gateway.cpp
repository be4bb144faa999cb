#include "gateway/Gateway.h"

#include "base/EPersistent.h"
#include "base/IAction.h"
#include "base/IKernelService.h"
#include "gateway/Console.h"
#include "gateway/Repair.h"
#include "gateway/Text.h"

#include <cstdio>
#include <stdexcept>

namespace {

// Operations of IKernelService::WarmRestart.
constexpr IKernelService::WR_OPERATION FORGET_REQUESTS = 0;
constexpr IKernelService::WR_OPERATION SAVE_REQUESTS = 1;

constexpr int NO_IDENTIFIER = -1;

void Demand(EResult result, const std::string& what) {
    if (Failed(result)) {
        char code[16];
        std::snprintf(code, sizeof code, "0x%08X", static_cast<unsigned>(result));
        throw std::runtime_error(what + " failed (" + code + ")");
    }
}

std::unique_ptr<ETransports> MakeTransportsFor(const Configuration& configuration) {
    if (!configuration.m_Mail && !configuration.m_Upload) {
        return nullptr;
    }
    return MakeTransports(configuration.m_Mail ? &*configuration.m_Mail : nullptr,
                          configuration.m_Upload ? &*configuration.m_Upload : nullptr, &Console::Say);
}

// Whether the action writes a row.
bool WritesRow(std::uint32_t action) {
    return action == SavedRequest::ALARM || action == SavedRequest::EVENT || action == SavedRequest::SNAPSHOT;
}

} // namespace

Gateway::Gateway(const Configuration& configuration, const std::filesystem::path& directory,
                 const std::filesystem::path& module)
    : m_Configuration(configuration),
      m_Directory(std::filesystem::absolute(directory)),
      m_Work(directory),
      m_pTransports(MakeTransportsFor(configuration)),
      m_Kernel(configuration, m_pTransports.get()),
      m_Module(module, m_Kernel, m_Work.Path()) {
    m_Kernel.SetService(&m_Module.Service());
    for (const LogFile& file : configuration.m_LogFiles) {
        RepairCurrentFile(file);
    }
    ReportInterruptedDeliveries();
    Start();
}

void Gateway::Start() {
    IKernelService& service = m_Module.Service();
    EPersistent::SetErrorHook([](const wchar_t* message) { Console::Say("error: " + Narrow(message)); });
    EPersistent::SetDirectory(Widen(m_Directory.string()));
    Demand(service.PrepareToStart(), "preparing the module");
    Demand(service.Restore(0, NO_IDENTIFIER), "preparing the module"); // for the names; reads nothing
    Demand(service.Restore(0), "reading the configuration");
    MakeKernelLogDirectory();
    if (m_Kernel.m_NameService.Failures() > 0) {
        throw std::runtime_error("rows would be lost: see the directories above");
    }
    // From here on the module keeps its list of waiting requests apart from those that a clean stop has saved.
    EPersistent::SetDirectory(Widen(m_Work.Path().string()));
    RestoreRequests();
}

// Directories of deliveries that a kill has interrupted. Whether the transports had taken their files over nobody knows.
void Gateway::ReportInterruptedDeliveries() const {
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator("Spool", error)) {
        if (entry.is_directory(error) && entry.path().filename().string().starts_with("$tmp")) {
            Console::Say(entry.path().string() + ": left by an interrupted delivery; its files may not have been sent");
        }
    }
}

// The module makes no directory for the kernel log.
void Gateway::MakeKernelLogDirectory() const {
    const LogFile* const kernelLog = m_Configuration.FindLogFile("KernelLog");
    const std::filesystem::path directory =
        kernelLog != nullptr ? std::filesystem::path(kernelLog->m_LogPath + "x").parent_path() : "";
    std::error_code error;
    std::filesystem::create_directories(directory, error);
    if (!directory.empty() && !std::filesystem::is_directory(directory)) {
        throw std::runtime_error(directory.string() + ": the kernel log's directory cannot be made");
    }
}

// At any moment of this the gateway may be killed. The saved file is removed before the first of its requests can be
// written, so that none is written twice.
void Gateway::RestoreRequests() {
    IKernelService& service = m_Module.Service();
    const std::filesystem::path saved = m_Directory / Narrow(m_Module.SavedRequestsName());
    const std::filesystem::path copy = m_Work.Path() / saved.filename();
    std::optional<SavedRequest> last;
    if (std::filesystem::exists(saved)) {
        const auto isUsable = [this](const SavedRequest& request) { return CanReport(request); };
        if (!SavedRequests::SplitLast(saved, copy, isUsable, last)) {
            throw std::runtime_error(saved.string() + ": the saved requests cannot be read, or not be copied to " +
                                     copy.string());
        }
        SavedRequests::ForEach(copy, [this](SavedRequest& request, std::uint64_t) { CountRequest(request, 1); });
        m_Kernel.m_Control.WantRestore(true);
    }
    Demand(service.PreStart(), "starting the module");
    if (m_Kernel.m_Control.HasFailed()) {
        const std::filesystem::path damaged = saved.string() + ".damaged";
        std::filesystem::rename(saved, damaged);
        Console::Say("the file of saved requests is kept as " + damaged.string());
    }
    std::filesystem::remove(saved);
    service.WarmRestart(FORGET_REQUESTS, nullptr);
    Demand(service.Start(), "starting the module");
    m_bRunning = true;
    if (last) {
        CountRequest(*last, 1);
        ReportAgain(*last);
    }
    if (m_Counters.m_nRestored > 0) {
        Console::Say(std::to_string(m_Counters.m_nRestored) + " saved requests are taken up again");
    }
}

// Whether the module will queue the request when it is reported.
bool Gateway::CanReport(const SavedRequest& request) const {
    const LogFile* const file = m_Configuration.FindLogFile(Narrow(request.m_Log));
    return file != nullptr && !request.m_Events.empty() &&
           (WritesRow(request.m_nAction) || request.m_nAction == SavedRequest::RESTART ||
            (request.m_nAction == SavedRequest::DELIVERY && file->Delivers()));
}

void Gateway::ReportAgain(SavedRequest& request) {
    const auto count = static_cast<unsigned long>(request.m_Events.size());
    EONEVENTSTRUCT* const events = request.m_Events.data();
    const char* action = ACTION_EVENT;
    switch (request.m_nAction) {
    case SavedRequest::ALARM:
        m_Module.LogFile().LogAlarm(request.m_Log, events); // as an action it might be another identifier's
        return;
    case SavedRequest::SNAPSHOT:
        action = ACTION_SNAPSHOT;
        break;
    case SavedRequest::DELIVERY:
        action = ACTION_DELIVERY;
        break;
    case SavedRequest::RESTART:
        action = ACTION_RESTART;
        break;
    default:
        break;
    }
    EString name = Widen(action);
    m_Kernel.m_Actions.Find(action)->Invoke(name, request.m_Log, nullptr, count, events, nullptr);
}

bool Gateway::Hand(Report& report, std::string& reason) {
    const EResult result = Pass(report);
    if (!Failed(result)) {
        Count(report);
        return true;
    }
    const std::string log = EJsonText::Quote(report.m_Log);
    reason = result == RC_NO_LOG_FILE ? "there is no log file " + log
             : result == RC_NO_ACTION ? "log file " + log + " does not deliver"
                                      : "log file " + log + " does not take the report";
    return false;
}

EResult Gateway::Pass(Report& report) {
    ILogFile& logFile = m_Module.LogFile();
    EONEVENTSTRUCT* const records = report.m_Records.data();
    const auto count = static_cast<unsigned long>(report.m_Records.size());
    EString log = Widen(report.m_Log);
    switch (report.m_Kind) {
    case Report::Kind::Event:
        return logFile.ReportEvent(records);
    case Report::Kind::Alarm:
        return logFile.LogAlarm(log, records);
    case Report::Kind::SnapShot:
        return logFile.LogSnapShot(log, records, count);
    case Report::Kind::Action:
        break;
    }
    IAction* const action = m_Kernel.m_Actions.Find(report.m_Action);
    EString name = Widen(report.m_Action);
    return action != nullptr ? action->Invoke(name, log, nullptr, count, records, nullptr) : RC_NO_ACTION;
}

void Gateway::Count(const Report& report) {
    ++m_Counters.m_nReports;
    const bool isAction = report.m_Kind == Report::Kind::Action;
    if (isAction && report.m_Action == ACTION_DELIVERY) {
        ++m_Counters.m_nDeliveries;
    }
    if (isAction && (report.m_Action == ACTION_DELIVERY || report.m_Action == ACTION_RESTART)) {
        return;
    }
    EString name = Widen(report.m_Log);
    const bool isOthers = isAction && report.m_Action == ACTION_ALARM &&
                          report.m_Records.front().m_nIdentifier != NameService::Split(name);
    if (!isOthers) { // an alarm of another identifier leaves no row
        ++m_Counters.m_Rows[report.m_Kind == Report::Kind::Event ? "KernelLog" : report.m_Log];
    }
}

void Gateway::CountRequest(const SavedRequest& request, int sign) {
    if (m_Configuration.FindLogFile(Narrow(request.m_Log)) == nullptr) {
        return; // of a log file that the configuration has lost: dropped by the module
    }
    ++(sign > 0 ? m_Counters.m_nRestored : m_Counters.m_nSaved);
    if (WritesRow(request.m_nAction)) {
        std::uint64_t& rows = m_Counters.m_Rows[Narrow(request.m_Log)];
        rows += sign > 0 ? 1 : std::uint64_t(0) - 1;
    }
}

std::optional<std::uint32_t> Gateway::CountWaiting() {
    if (Failed(m_Module.Service().WarmRestart(SAVE_REQUESTS, nullptr))) {
        return std::nullopt;
    }
    return SavedRequests::Count(m_Work.Path() / Narrow(m_Module.SavedRequestsName()));
}

bool Gateway::End(bool save) {
    m_Module.Service().PrepareToStop();
    m_bRunning = false;
    const std::optional<std::uint32_t> waiting = save ? CountWaiting() : 0;
    if (waiting.value_or(0) == 0) {
        return waiting.has_value();
    }
    // Complete, or not there at all.
    const std::filesystem::path name = Narrow(m_Module.SavedRequestsName());
    SavedRequests::ForEach(m_Work.Path() / name,
                           [this](SavedRequest& request, std::uint64_t) { CountRequest(request, -1); });
    std::error_code error;
    std::filesystem::rename(m_Work.Path() / name, m_Directory / name, error);
    return !error;
}

Gateway::~Gateway() {
    if (m_bRunning) {
        End(true);
    }
    if (m_pTransports != nullptr) {
        m_pTransports->Stop(); // no notice comes any more to a service that is about to go
    }
}
