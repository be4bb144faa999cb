// One half of a warm restart, in the working directory: "save" leaves requests of every kind waiting and saves them,
// "restore" takes them up and writes their rows. The halves may be built for different processors; run.sh crosses them.

#include "base/EONEVENTSTRUCT.h"
#include "tests/Reports.h"
#include "tests/Workplace.h"
#include "tests/kernel/LoadedModule.h"
#include "tests/kernel/TestKernel.h"

#include <cstdio>
#include <limits>
#include <numeric>

namespace {

constexpr const char* MARK = "logs/mark.txt"; // gets a row when everything before it has been written

EONEVENTSTRUCT Record(std::uint32_t seconds, std::uint16_t milliseconds) {
    EONEVENTSTRUCT record = MakeRecord(L"Pump 1", L"too hot: 80 \u00b0C");
    record.m_TimeStamp = {seconds, milliseconds};
    record.m_Value.SetTimestamp({seconds, milliseconds});
    record.m_wState = EONEVENTSTRUCT::STATE_ACTIVE | EONEVENTSTRUCT::STATE_ACKED;
    record.m_nAlarmNumber = INT32_MIN;
    record.m_nIdentifier = -1;
    return record;
}

// The numbers at the ends of their ranges, and characters that need more than 16 bits.
void Report(IKernelService* service) {
    EString names[] = {L"Alarms", L"Trend", L"Wide", L"DoLogEventToFile"};
    ILogFile* logFile = LoadedModule::LogFile(service);

    EONEVENTSTRUCT alarm = Record(2147483648, 999); // the first second that 31 bits do not hold
    alarm.m_Value.SetInteger(std::numeric_limits<std::int64_t>::min());
    logFile->LogAlarm(names[0], &alarm);
    alarm = Record(4294967295, 0);
    alarm.m_Value.SetDouble(-std::numeric_limits<double>::denorm_min());
    logFile->LogAlarm(names[0], &alarm);

    EONEVENTSTRUCT cells[4] = {Record(1706706309, 42), Record(0, 0), Record(0, 0), Record(0, 0)};
    cells[0].m_Value.SetText(L"\U0001F525 \u20ac");
    cells[1].m_Value.SetBoolean(true);
    cells[2].m_Value.SetDouble(0.1);
    cells[3].m_Value.SetQuality(CDataValue::QUALITY_UNCERTAIN);
    logFile->LogSnapShot(names[1], cells, 4);

    EONEVENTSTRUCT reported = Record(951782400, 1);
    std::iota(std::begin(reported.m_nPrefixNumbers), std::end(reported.m_nPrefixNumbers), -1);
    LoadedModule::Action(service)->Invoke(names[3], names[2], nullptr, 1, &reported, nullptr);
}

// Reports an alarm to the file `MARK`, which wakes the worker, and waits for its row.
bool WriteMark(IKernelService* service) {
    EString mark = L"Mark";
    EONEVENTSTRUCT record = Record(0, 0);
    LoadedModule::LogFile(service)->LogAlarm(mark, &record);
    return Soon([] { return !ReadWhole(MARK).empty(); });
}

} // namespace

int main(int /*count*/, char** arguments) {
    const bool restores = std::string(arguments[1]) == "restore";
    Workplace::WriteSection({SpecItems{.m_Name = "Alarms", .m_File = "alarms.csv"},
                             SpecItems{.m_Name = "Trend", .m_File = "trend.html", .m_nFormat = 2},
                             SpecItems{.m_Name = "Wide", .m_File = "wide.txt", .m_nFormat = 0, .m_nUnicode = 1},
                             SpecItems{.m_Name = "Mark", .m_File = "mark.txt", .m_nFiles = 1, .m_nFormat = 0}});
    std::filesystem::create_directory("logs");
    TestKernel kernel;
    kernel.m_Control.m_bRestoreWanted = restores;
    LoadedModule module;
    IKernelService* service = module.InitService(&kernel);
    bool done = service->PrepareToStart() == RC_OK && service->Restore(0) == RC_OK && service->PreStart() == RC_OK;
    if (done && restores) {
        done = service->Start() == RC_OK && WriteMark(service);
    } else if (done) {
        Report(service);
        done = service->WarmRestart(1, nullptr) == RC_OK;
    }
    service->PrepareToStop();
    service->Stop();
    for (const ReportedMessage& message : kernel.m_Reporter.Messages()) {
        std::fprintf(stderr, "message %d: %s\n", message.m_nNumber, message.m_Text.c_str());
        done = false;
    }
    return done ? EXIT_SUCCESS : EXIT_FAILURE;
}
