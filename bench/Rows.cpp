// What a whole alarm row costs, from the request to the closed file: above the bare system calls that write the same
// bytes (open, size, write at the end, close), and beside a logger that keeps its rolling file open and flushes it after
// each row.

#include "base/EFileIO.h"
#include "bench/Alarm.h"
#include "bench/Ratio.h"
#include "config/EFileSpec.h"
#include "intake/ELogInfo.h"
#include "service/ELogFile.h"
#include "tests/TempDir.h"

#include <fcntl.h>
#include <log4cplus/fileappender.h>
#include <log4cplus/initializer.h>
#include <log4cplus/layout.h>
#include <log4cplus/loggingmacros.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

std::string File() {
    static const TempDir dir;
    return dir.Path("rows.csv");
}

// A service without a kernel, and one alarm that is reported to it again and again. Begins the file anew.
class Logger {
public:
    Logger() : m_Service(nullptr) {
        EFileIO::DeleteFile(Wide(File()));
        m_Service.m_DateFormat = L"MM-DD-YYYY";
        m_Service.m_TimeFormat = L"HH:mm:SS.sss";
        m_Spec.m_LogPath = Wide(std::filesystem::path(File()).parent_path().string() + '/');
        m_Spec.m_FileName = Wide(std::filesystem::path(File()).filename().string());
        m_Spec.m_MaxFileSize = 1 << 30;
        m_Spec.m_Unicode = 0;
        m_Spec.MakeFilter(false);
        m_Spec.m_Headers.SetAtGrow(0, L"Alarms");
        m_Spec.m_bHeadersSet = true;
        Log();
    }

    // Each alarm comes a second and a quarter after the one before.
    void Log() {
        ETimeStamp& stamp = m_Request.FirstEvent()->m_TimeStamp;
        stamp.m_nSeconds += stamp.m_nMilliseconds == 750 ? 2 : 1;
        stamp.m_nMilliseconds = static_cast<std::uint16_t>((stamp.m_nMilliseconds + 250) % 1000);
        m_Service.ProcessLogFile(&m_Request);
    }

private:
    ELogFile m_Service;
    EFileSpec m_Spec;
    EONEVENTSTRUCT m_Alarm = Alarm();
    ELogInfo m_Request{&m_Spec, ACTION_LOG_ALARM, 1, &m_Alarm};
};

// The bytes of one row, as the service writes it; it stands in the file, behind the headings.
std::string Row() {
    const Logger logger;
    const std::string content = ReadWhole(File());
    return content.substr(content.find('\n') + 1);
}

// The same columns; the date and time by the logger, the others as its user gives them.
log4cplus::Logger RollingLogger() {
    static const log4cplus::Initializer initializer;
    log4cplus::Logger logger = log4cplus::Logger::getInstance("alarms");
    log4cplus::SharedAppenderPtr appender(
        new log4cplus::RollingFileAppender(File() + ".peer", 1 << 30, 1, /*immediateFlush=*/true));
    appender->setLayout(std::make_unique<log4cplus::PatternLayout>("%D{%m-%d-%Y,%H:%M:%S.%q},%m%n"));
    logger.removeAllAppenders();
    logger.addAppender(appender);
    return logger;
}

bool AppendBare(const char* path, const std::string& row) {
    const int file = open(path, O_WRONLY | O_CREAT | O_CLOEXEC, 0666);
    struct stat status {};
    const bool done = file >= 0 && fstat(file, &status) == 0 &&
                      pwrite(file, row.data(), row.size(), status.st_size) == static_cast<ssize_t>(row.size());
    return file >= 0 && close(file) == 0 && done;
}

// Each row must have arrived, whoever wrote it.
template <class Append>
void Rounds(benchmark::State& state, Append append) {
    const std::size_t row = Row().size();
    const auto before = std::filesystem::file_size(File());
    for (auto iteration : state) {
        append();
    }
    if (std::filesystem::file_size(File()) != before + row * static_cast<std::size_t>(state.iterations())) {
        state.SkipWithError("rows are missing");
    }
}

void LogRows(benchmark::State& state) {
    Logger logger;
    Rounds(state, [&] { logger.Log(); });
}

void WriteBare(benchmark::State& state) {
    const std::string row = Row();
    const std::string path = File();
    Rounds(state, [&] { AppendBare(path.c_str(), row); });
}

void LogByPeer(benchmark::State& state) {
    const log4cplus::Logger logger = RollingLogger();
    const auto before = std::filesystem::file_size(File() + ".peer");
    for (auto iteration : state) {
        LOG4CPLUS_INFO_FMT(logger, "%s,%s,%s,%s,%s,%s,%d,%.2f", "Boiler 2 feed pump", "Pressure above the upper limit",
                           "Controller 17", "Hall 3, line B, checked every 250 ms", "Active", "Not ACKED", 4711, 12.75);
    }
    const auto rows = std::filesystem::file_size(File() + ".peer") - before;
    if (rows < 100 * static_cast<std::size_t>(state.iterations())) {
        state.SkipWithError("rows are missing");
    }
}

} // namespace

int main(int argc, char** argv) {
    const Ratio bare{.m_pszGoal = "1.12", .m_nRounds = 1000, .m_nIterations = 200};
    const Ratio peer{.m_pszGoal = "-", .m_nRounds = 1000, .m_nIterations = 200};
    const Measured row{"whole alarm row", LogRows};
    return RunRatios(argc, argv,
                     {{bare, row, {"bare open, fstat, pwrite, close of its bytes", WriteBare}},
                      {peer, row, {"log4cplus rolling file, flushed per row", LogByPeer}}});
}
