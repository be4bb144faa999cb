// What a reporting thread pays for an alarm: beside an asynchronous logger with the same queue bound that drops too when
// it is full, and with few and with many log files configured.

#include "bench/Alarm.h"
#include "bench/Ratio.h"
#include "config/EFileSpec.h"
#include "intake/ELogInfo.h"
#include "service/ELogFile.h"
#include "tests/TempDir.h"

#include <memory>
#include <spdlog/async.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <thread>

namespace {

constexpr int FEW = 10;
constexpr int MANY = 100000;
constexpr int NAMES = 10; // that a reporter uses by turns

const TempDir& Directory() {
    static const TempDir dir;
    return dir;
}

// All of one length.
std::string NameOf(int spec) {
    return "Log file " + std::to_string(MANY + spec);
}

// A service with so many log files, without a kernel.
std::unique_ptr<ELogFile> MakeService(int specs) {
    auto service = std::make_unique<ELogFile>(nullptr);
    service->m_DateFormat = L"MM-DD-YYYY";
    service->m_TimeFormat = L"HH:mm:SS.sss";
    for (int i = 0; i < specs; ++i) {
        auto spec = std::make_unique<EFileSpec>();
        spec->m_Name = Wide(NameOf(i));
        spec->m_LogPath = Wide(Directory().Path() + '/');
        spec->m_FileName = Wide("log" + std::to_string(i) + ".csv");
        spec->m_MaxFileSize = 1 << 30;
        spec->m_Unicode = 0;
        spec->MakeFilter(false);
        service->m_FileSpecs[spec->m_Name] = spec.get();
        (void)spec.release();
    }
    return service;
}

// The waiting alarms are written before the next measurement begins.
void Drain(ELogFile& service) {
    for (bool empty = false; !empty; std::this_thread::sleep_for(std::chrono::milliseconds(1))) {
        service.m_QueueMutex.Lock(MUTEX_NAME);
        empty = service.m_LogQueue.IsEmpty();
        service.m_QueueMutex.Unlock(MUTEX_NAME);
    }
}

// With the worker writing what it gets.
void LogAlarm(benchmark::State& state) {
    static const std::unique_ptr<ELogFile, void (*)(ELogFile*)> service = [] {
        auto made = MakeService(FEW);
        made->Start();
        return std::unique_ptr<ELogFile, void (*)(ELogFile*)>(made.release(), [](ELogFile* started) {
            started->PrepareToStop();
            delete started;
        });
    }();
    EString name = Wide(NameOf(state.thread_index()));
    EONEVENTSTRUCT alarm = Alarm();
    for (auto iteration : state) {
        service->LogAlarm(name, &alarm);
    }
    if (state.thread_index() == 0) {
        Drain(*service);
    }
}

void LogAsynchronously(benchmark::State& state) {
    static const std::shared_ptr<spdlog::logger> logger = [] {
        spdlog::init_thread_pool(ELogFile::QUEUE_LIMIT, 1);
        return spdlog::basic_logger_mt<spdlog::async_factory_nonblock>("log", Directory().Path("spdlog.txt"));
    }();
    for (auto iteration : state) {
        logger->info("{},{},{},{},{},{},{},{}", "Boiler 2 feed pump", "Pressure above the upper limit", "Controller 17",
                     "Hall 3, line B, checked every 250 ms", "Active", "Not ACKED", 4711, 12.75);
    }
    if (state.thread_index() == 0) {
        while (spdlog::thread_pool()->queue_size() > 0) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }
}

// Without a worker; what was queued is taken out again at once.
template <int SPECS, int STEP = SPECS / NAMES>
void LookUp(benchmark::State& state) {
    static const std::unique_ptr<ELogFile> service = MakeService(SPECS);
    static std::vector<EString> names = [] {
        std::vector<EString> made;
        for (int i = 0; i < SPECS; i += STEP) {
            made.push_back(Wide(NameOf(i)));
        }
        return made;
    }();
    EONEVENTSTRUCT alarm = Alarm();
    std::size_t next = 0;
    for (auto iteration : state) {
        service->LogAlarm(names[next], &alarm);
        delete static_cast<ELogInfo*>(service->m_LogQueue.RemoveHead());
        next = next + 1 < names.size() ? next + 1 : 0;
    }
}

} // namespace

int main(int argc, char** argv) {
    const Ratio beside{.m_pszGoal = "0.35", .m_nRounds = 200, .m_nIterations = 5000};
    const Ratio accepted{
        .m_pszGoal = "-", .m_nRounds = 1000, .m_nIterations = 400}; // fewer than the bound: none is dropped
    const Ratio growth{.m_pszGoal = "1.2", .m_nRounds = 1000, .m_nIterations = 500};
    return RunRatios(
        argc, argv,
        {{beside, {"LogAlarm", LogAlarm}, {"spdlog async", LogAsynchronously}},
         {beside, {"LogAlarm, 8 threads", LogAlarm}, {"spdlog async, 8 threads", LogAsynchronously}, 8},
         {accepted, {"LogAlarm, none dropped", LogAlarm}, {"spdlog async, none dropped", LogAsynchronously}},
         {growth, {"intake, 100000 log files", LookUp<MANY>}, {"intake, 10 log files", LookUp<FEW>}}});
}
