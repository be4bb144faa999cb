// What a full queue costs: the memory of its alarms beside that of their texts, and saving and restoring it beside
// writing and reading the same bytes at once.

#include "base/EFileIO.h"
#include "bench/Alarm.h"
#include "bench/Ratio.h"
#include "config/EFileSpec.h"
#include "intake/ELogInfo.h"
#include "service/ELogFile.h"
#include "tests/TempDir.h"

#include <cwchar>
#include <fcntl.h>
#include <malloc.h>
#include <unistd.h>

namespace {

const std::string& File() {
    static const TempDir dir;
    static const std::string path = dir.Path("pending");
    return path;
}

std::size_t TextSize(const EONEVENTSTRUCT& record) {
    std::size_t characters = 0;
    for (const wchar_t* text : {record.m_pszName, record.m_pszText, record.m_pszSource, record.m_pszDetail}) {
        characters += std::wcslen(text);
    }
    return characters * sizeof(wchar_t);
}

// A service without a kernel and without a worker.
class Service {
public:
    Service() : m_Service(nullptr) {
        auto spec = std::make_unique<EFileSpec>();
        spec->m_Name = m_Name;
        m_Service.m_FileSpecs[m_Name] = spec.get();
        (void)spec.release();
    }

    void Fill() {
        EONEVENTSTRUCT alarm = Alarm();
        for (int i = 0; i < QUEUE_LIMIT; ++i) {
            m_Service.LogAlarm(m_Name, &alarm);
        }
    }
    void Clear() {
        while (auto* request = static_cast<ELogInfo*>(m_Service.m_LogQueue.RemoveHead())) {
            delete request;
        }
    }

    ELogFile m_Service;

private:
    EString m_Name = L"Alarms of hall 3";
};

std::string SavedQueue() {
    Service service;
    service.Fill();
    unlink(File().c_str());
    service.m_Service.SavePendingLogEntries(Wide(File()));
    return ReadWhole(File());
}

void Save(benchmark::State& state) {
    Service service;
    service.Fill();
    const EString path = Wide(File());
    bool done = true;
    for (auto iteration : state) {
        EFileIO::DeleteFile(path);
        done = service.m_Service.SavePendingLogEntries(path) == RC_OK && done;
    }
    if (!done) {
        state.SkipWithError("not saved");
    }
}

void WriteAtOnce(benchmark::State& state) {
    const std::string bytes = SavedQueue();
    bool done = true;
    for (auto iteration : state) {
        unlink(File().c_str());
        const int file = open(File().c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0666);
        done = write(file, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()) && done;
        close(file);
    }
    if (!done) {
        state.SkipWithError("not written");
    }
}

void Restore(benchmark::State& state) {
    SavedQueue();
    Service service;
    const EString path = Wide(File());
    bool done = true;
    for (auto iteration : state) {
        done = service.m_Service.RestorePendingLogEntries(path) == RC_OK && done;
        state.PauseTiming();
        done = service.m_Service.m_LogQueue.GetCount() == QUEUE_LIMIT && done;
        service.Clear();
        state.ResumeTiming();
    }
    if (!done) {
        state.SkipWithError("not restored");
    }
}

void ReadAtOnce(benchmark::State& state) {
    std::string bytes = SavedQueue();
    bool done = true;
    for (auto iteration : state) {
        const int file = open(File().c_str(), O_RDONLY | O_CLOEXEC);
        done = read(file, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()) && done;
        close(file);
    }
    if (!done) {
        state.SkipWithError("not read");
    }
}

void PrintMemory() {
    Service service;
    const std::size_t before = mallinfo2().uordblks;
    service.Fill();
    const std::size_t queued = mallinfo2().uordblks - before;
    const std::size_t texts = QUEUE_LIMIT * TextSize(Alarm());
    PrintRatio("memory of 512 queued alarms", "their texts", static_cast<double>(queued), static_cast<double>(texts),
               "bytes", "2.5");
}

} // namespace

int main(int argc, char** argv) {
    const Ratio saving{.m_pszGoal = "2", .m_nRounds = 200, .m_nIterations = 5};
    const Ratio restoring{.m_pszGoal = "5", .m_nRounds = 200, .m_nIterations = 5};
    const int code =
        RunRatios(argc, argv,
                  {{saving, {"saving 512 requests", Save}, {"writing the same bytes at once", WriteAtOnce}},
                   {restoring, {"restoring 512 requests", Restore}, {"reading the same bytes at once", ReadAtOnce}}});
    PrintMemory();
    return code;
}
