// The life of a service that meets every use of files and memory, once for every call that it makes and every way in
// which that one call can fail.

#include "base/ELock.h"
#include "base/Guarded.h"
#include "base/WARM_RESTART_STRUCT.h"
#include "config/EFileSpec.h"
#include "intake/ELogInfo.h"
#include "service/ELogFile.h"
#include "service/Entry.h"
#include "tests/Reports.h"
#include "tests/Workplace.h"
#include "tests/faults/Faults.h"
#include "tests/kernel/TestKernel.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <span>

namespace {

using Rows = std::vector<int>;
using Contents = std::map<std::string, std::string>; // path to bytes
using RowsOfFiles = std::map<std::string, Rows>;     // by path; every job's directory is called "$tmp"
using RowsOfLogs = std::map<std::string, RowsOfFiles>;

// A log file of the scenario. Two rows fill a file.
struct FaultLog {
    SpecItems m_Items;
    int m_nLast; // row that is reported
    Rows m_Kept; // the rows on disk when nothing has failed

    bool IsDelivered() const { return m_Items.m_nDelivery != 1; }
};

constexpr int LAST_DELIVERED = 3; // one more row is written afterwards
constexpr int SAVED[] = {10, 11}; // by the first service, and restored by the second
// clang-format off
const std::vector<FaultLog> LOGS{
    {{"plain", "logs", "plain-%i.log", 280, 1, 0, 1, 1, 0}, 12, {11, 12}},
    {{"comma", "logs", "comma-%i.log", 166, 3, 1, 0, 1, 0}, 12, {7, 8, 9, 10, 11, 12}},
    {{"html", "logs", "html-%i.log", 789, 2, 2, 0, 1, 0}, 12, {9, 10, 11, 12}},
    {{"upKept", "logs", "upKept-%i.log", 166, 2, 1, 0, 2, 1}, 4, {1, 2, 3, 4}},
    {{"upDeleted", "logs", "upDeleted-%i.log", 139, 2, 0, 0, 2, 0}, 4, {4}},
    {{"mailKept", "logs", "mailKept-%i.log", 789, 2, 2, 0, 3, 1, "mail"}, 4, {1, 2, 3, 4}},
    {{"mailDeleted", "logs", "mailDeleted-%i.log", 334, 3, 1, 1, 3, 0, "mail"}, 4, {4}},
    {{"Kavro", "", "", 0, 1, 3, 1}, 4, {1, 2, 3, 4}}};
// clang-format on
const auto CONFIGURED = std::span(LOGS).first(7); // the service makes the kernel log itself

// A record whose name is the number of its row, as a letter.
EONEVENTSTRUCT RowRecord(int row) {
    static wchar_t names[13][2];
    names[row][0] = static_cast<wchar_t>(L'A' + row);
    return MakeRecord(names[row]);
}

std::string Without(std::string text, char character) {
    std::erase(text, character);
    return text;
}

// The header and the row of each format, and of the kernel log. '?' is the number of the row, as a letter.
const std::string ROW = "01-31-2024,13:05:09.042,?,T,S,D,Not Active,Not ACKED,7,17\n";
const std::pair<std::string, std::string> FORMATS[] = {{Without(ALARM_COLUMNS, ','), Without(ROW, ',')},
                                                       {ALARM_COLUMNS, ROW},
                                                       {PageBegin(ALARM_COLUMNS), PageRow(ROW)},
                                                       {"", "01-31-2024 13:05:09.042 S ?: T\n"}};

// The numbers of a file's rows. Fails the test unless it is, byte for byte, a header, and whole rows and footers.
Rows RowsIn(const FaultLog& log, const std::string& bytes) {
    auto [header, cells] = FORMATS[log.m_Items.m_nFormat];
    static const std::regex headingCell("TH>"); // of such is what continues the HTML file of an earlier service
    Rows rows;
    std::string text = bytes;
    if (log.m_Items.m_nUnicode != 0 && !bytes.empty()) {
        header = "\xFF\xFE" + header;
        text = Without(text, '\0');
        EXPECT_EQ(bytes.size(), 2 * text.size() - 2); // the byte order mark has no null characters
    }
    EXPECT_TRUE(text.empty() || text.starts_with(header)) << text;
    for (std::size_t at = header.size(); at < text.size(); at += cells.size()) {
        while (text.compare(at, PAGE_END.size(), PAGE_END) == 0) {
            text.erase(at, PAGE_END.size());
        }
        std::string row = std::regex_replace(text.substr(at, cells.size()), headingCell, "TD>");
        if (const std::size_t place = cells.find('?'); place < row.size()) {
            rows.push_back(std::exchange(row[place], '?') - 'A');
        }
        EXPECT_TRUE(row == cells || row.empty()) << "torn at character " << at << ":\n" << text;
    }
    return rows;
}

RowsOfFiles RowsIn(const FaultLog& log, const Contents& files) {
    RowsOfFiles rows;
    for (const auto& [path, bytes] : files) {
        if (path.substr(path.find_last_of('/') + 1).starts_with(log.m_Items.m_Name)) {
            SCOPED_TRACE(path);
            const std::size_t job = path.find("$tmp");
            rows[job == std::string::npos ? path : std::string(path).erase(job + 4, 8)] = RowsIn(log, bytes);
        }
    }
    return rows;
}

// What is left of one life.
struct Outcome {
    RowsOfLogs m_Kept;                                  // on disk, by the log file's name
    RowsOfLogs m_Sent;                                  // handed to an upload or an e-mail
    std::set<std::pair<EResult, std::string>> m_Failed; // what was asked for, and deliveries by their log file
    std::vector<std::string> m_Strays;                  // files that belong to no log file, and directories of jobs
    bool m_bTold = false;                               // that something failed; it was asked for once more
};

// Rows through rotations of each format, deliveries of each kind, early and late events, a restart, a warm save; then a
// second service that restores and goes on. Faults strike in the module alone.
class Life : public Outcome {
public:
    Life() {
        std::vector<std::string> elements;
        std::ranges::transform(CONFIGURED, std::back_inserter(elements), &FaultLog::m_Items);
        Workplace::WriteSection(elements);
        RunFirst();
        RunSecond();
        EPersistent::RemoveFactories();
    }

private:
    void RunFirst() {
        TestKernel kernel;
        kernel.m_EMail.m_Definitions["mail"] = "";
        kernel.m_Upload.m_Notices.m_When = TestNotices::When::Inside;
        Begin(kernel);
        Report(1); // before there is a kernel log
        for (const FaultLog& log : CONFIGURED) {
            const int before = log.IsDelivered() ? LAST_DELIVERED : 8;
            EString name = Wide(log.m_Items.m_Name);
            EString action = log.IsDelivered() ? ACTION_NAME_DELIVERY : ACTION_NAME_RESTART;
            EONEVENTSTRUCT record = MakeRecord();
            WriteRows(log, 1, before);
            Do("Invoke", [&] { return m_pService->Invoke(action, name, nullptr, 1, &record, nullptr); });
            WriteRows(log, before + 1, before + 1);
        }
        Process(kernel);
        kernel.m_EMail.m_Notices.Deliver();
        EXPECT_TRUE(m_pService->m_Deliveries.IsEmpty());
        EXPECT_EQ(kernel.m_EMail.m_Definitions["mail"], "");
        EXPECT_EQ(kernel.m_EMail.m_nRecords, 0);
        Do("Start", [&] { return m_pService->Start(); });
        Do("PrepareToStop", [&] { return m_pService->PrepareToStop(); });
        Report(2); // writes both
        for (const FaultLog& log : CONFIGURED) {
            WriteRows(log, SAVED[0], log.IsDelivered() ? 0 : SAVED[1]);
        }
        Do("Save", [&] { return m_pService->WarmRestart(1, nullptr); });
        NoteFiles(true, kernel);
        Do("Stop", [&] { return m_pService->Stop(); });
    }

    void RunSecond() {
        TestKernel kernel;
        kernel.m_Control.m_bRestoreWanted = true;
        Begin(kernel);
        for (const FaultLog& log : CONFIGURED) {
            WriteRows(log, log.m_nLast, log.IsDelivered() ? 0 : log.m_nLast);
        }
        Do("Start", [&] { return m_pService->Start(); });
        Report(3);
        EXPECT_TRUE(Eventually([&] {
            const ELock lock(m_pService->m_QueueMutex, MUTEX_NAME);
            return m_pService->m_LogQueue.IsEmpty();
        }));
        Do("PrepareToStop", [&] { return m_pService->PrepareToStop(); });
        Report(4);
        Do("GetAgentLogFile",
           [this, file = EString(), format = 0]() mutable { return m_pService->GetAgentLogFile(file, format); });
        WARM_RESTART_STRUCT sections{};
        Do("ListSections", [&] { return m_pService->WarmRestart(3, &sections); });
        delete[] sections.m_pszSections;
        Do("Forget", [&] { return m_pService->WarmRestart(2, nullptr); });
        NoteFiles(false, kernel);
        Do("Stop", [&] { return m_pService->Stop(); });
    }

    // Has the module do something. What fails is asked for once more: nothing is in the way then.
    template <class Operation>
    void Do(const char* name, Operation operation) {
        EResult result = RC_OK;
        InKernel::Leave([&] { result = operation(); });
        if (Failed(result)) {
            m_Failed.emplace(result, name);
            m_bTold = true;
            InKernel::Leave([&] { result = operation(); });
        }
        EXPECT_EQ(result, RC_OK) << name;
    }

    // Makes a service that is prepared, configured and pre-started.
    void Begin(TestKernel& kernel) {
        Do("Construct", [&] {
            return Guarded([&] { return (m_pService = kvLogFileInitService(&kernel)) == g_pELogFile ? RC_OK : 1; });
        });
        Do("PrepareToStart", [&] { return m_pService->PrepareToStart(); });
        // What is left out, as the kernel was told, is read by a kernel that is started once more.
        Do("Restore", [&] {
            const EResult result = m_pService->Restore(0);
            const bool complete = m_pService->m_FileSpecs.GetCount() == static_cast<int>(CONFIGURED.size()) &&
                                  !m_pService->m_DateFormat.IsEmpty() && !m_pService->m_TimeFormat.IsEmpty();
            return complete || Failed(result) ? result : RC_ITEM_MISSING;
        });
        Do("PreStart", [&] { return m_pService->PreStart(); });
        if (kernel.m_Reporter.Count(138) != 0) {
            m_Failed.emplace(RC_READ, "saved requests");
        }
    }

    void Report(int row) {
        EONEVENTSTRUCT record = RowRecord(row);
        Do("ReportEvent", [&] { return m_pService->ReportEvent(&record); });
    }

    void WriteRows(const FaultLog& log, int first, int last) {
        EString name = Wide(log.m_Items.m_Name);
        for (int row = first; row <= last; ++row) {
            EONEVENTSTRUCT record = RowRecord(row);
            Do("LogAlarm", [&] { return m_pService->LogAlarm(name, &record); });
        }
    }

    // What is queued, as the worker does it.
    void Process(const TestKernel& kernel) {
        while (auto* info = static_cast<ELogInfo*>(m_pService->m_LogQueue.RemoveHead())) {
            const std::unique_ptr<ELogInfo> request(info);
            EResult result = RC_OK;
            InKernel::Leave([&] { result = Guarded([&] { return m_pService->ProcessLogFile(info); }); });
            if (Failed(result)) {
                const std::string log = Narrow(info->m_pFileSpec->m_Name);
                const bool jobless = kernel.m_Reporter.Count(304) != 0;
                m_Failed.emplace(result, info->m_Action != ACTION_DELIVERY ? "Row" : jobless ? log + " job" : log);
            }
        }
    }

    // Of the log files that are delivered, or of the others.
    void NoteFiles(bool delivered, const TestKernel& kernel) {
        Contents kept;
        Contents sent;
        for (const std::string& path : Workplace::Tree()) {
            if (path.ends_with(".log")) {
                kept[path] = ReadWhole(path);
            } else if (path.ends_with('/') ? path.find("$tmp") != std::string::npos : path != "kvLogFile.warm") {
                m_Strays.push_back(path);
            }
        }
        const auto note = [&](Contents contents) { sent.merge(contents); };
        std::ranges::for_each(kernel.m_Upload.m_Sent, note, &Sending::m_Contents);
        std::ranges::for_each(kernel.m_EMail.m_Sent, note, &Sending::m_Contents);
        for (const FaultLog& log : LOGS) {
            if (log.IsDelivered() == delivered) {
                m_Kept[log.m_Items.m_Name] = RowsIn(log, kept);
                m_Sent[log.m_Items.m_Name] = RowsIn(log, sent);
            }
        }
    }

    const Workplace m_Workplace;
    ELogFile* m_pService = nullptr;
};

struct FaultCall {
    Call m_Call;
    const char* m_pszName;
    unsigned m_nRows = 0;        // that may be lost with it; most calls lose none, whatever becomes of them
    bool m_bLeavesFiles = false; // a file or directory may stay where it is
    Rows m_Failures{ENOSPC, EIO, EACCES, EMFILE, EINTR};
};

void PrintTo(const FaultCall& call, std::ostream* out) {
    *out << call.m_pszName;
}

const FaultCall CALLS[] = {{Call::Allocate, "new", 1, true, {ENOMEM}},
                           {Call::Open, "open", 1},
                           {Call::FStat, "fstat", 1},
                           {Call::Stat, "stat"},
                           {Call::PWrite, "pwrite", 1, false, {ENOSPC, EIO, EACCES, EMFILE, EINTR, SHORT, DISK_FULL}},
                           {Call::PRead, "pread", 1, false, {ENOSPC, EIO, EACCES, EMFILE, EINTR, SHORT}},
                           {Call::Truncate, "truncate"},
                           {Call::Rename, "rename", 0, true},
                           {Call::Unlink, "unlink", 0, true},
                           {Call::MkDir, "mkdir"},
                           {Call::RmDir, "rmdir", 0, true},
                           {Call::Close, "close"}};

// What tells of its failure, and how, as memory runs out at each allocation in turn.
const std::map<EResult, std::set<std::string>> TOLD{
    {RC_NOT_MADE,
     {"Construct", "PrepareToStart",  "Restore",    "Start",         "ReportEvent",  "LogAlarm",       "Invoke",
      "Row",       "GetAgentLogFile", "Save",       "ListSections",  "Forget",       "upKept",         "upDeleted",
      "mailKept",  "mailDeleted",     "upKept job", "upDeleted job", "mailKept job", "mailDeleted job"}},
    {RC_MISSING, {"upKept", "upDeleted", "mailKept", "mailDeleted"}},
    {RC_ITEM_MISSING, {"Restore"}},
    {RC_READ, {"saved requests"}}};

std::ptrdiff_t CountDescriptors() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

// The rows of all files, oldest first. Each must be in one place, behind the older ones.
Rows Join(const RowsOfFiles& files) {
    std::multiset<Rows> sorted;
    for (const auto& [path, rows] : files) {
        sorted.insert(rows);
    }
    Rows all;
    for (const Rows& rows : sorted) {
        all.insert(all.end(), rows.begin(), rows.end());
    }
    EXPECT_TRUE(std::ranges::is_sorted(all, std::ranges::less_equal{})) << testing::PrintToString(files);
    return all;
}

class FaultTest : public testing::TestWithParam<FaultCall> {
protected:
    void SetUp() override {
        setenv("TZ", "UTC", 1);
        tzset();
        if (std::filesystem::is_directory("/dev/shm")) {
            setenv("TMPDIR", "/dev/shm", 1); // in memory: thousands of runs wait for no disk
        }
        s_Sound = Life();
        EXPECT_EQ(s_Sound.m_Strays, std::vector<std::string>());
        for (const FaultLog& log : LOGS) {
            const std::string& name = log.m_Items.m_Name;
            EXPECT_EQ(Join(s_Sound.m_Kept[name]), log.m_Kept) << name;
            EXPECT_EQ(Join(s_Sound.m_Sent[name]), (log.IsDelivered() ? Rows{1, 2, 3} : Rows()));
        }
    }

    // Only the row of the failed operation is lost, and none if the operation told.
    static void CheckLoss(const Outcome& run) {
        std::set<std::pair<std::string, int>> lost;
        for (const FaultLog& log : LOGS) {
            for (int row = FirstRow(log, run); row <= log.m_nLast; ++row) {
                lost.emplace(log.m_Items.m_Name, row);
            }
            for (const RowsOfLogs& rows : {run.m_Kept, run.m_Sent}) {
                for (const int row : Join(rows.at(log.m_Items.m_Name))) {
                    lost.erase({log.m_Items.m_Name, row});
                }
            }
        }
        // Saved requests are lost together: then the kernel has been told, or the file could not be opened again.
        const bool told = run.m_Failed.contains({RC_READ, "saved requests"}) && GetParam().m_Call != Call::PWrite;
        if (told || GetParam().m_Call == Call::Open) {
            std::erase_if(lost, [](const auto& row) { return std::ranges::count(SAVED, row.second) != 0; });
        }
        EXPECT_LE(lost.size(), run.m_bTold ? 0U : GetParam().m_nRows) << testing::PrintToString(lost);
    }

    // Checks where the rows of a log file are, and gives the first one that must be somewhere.
    static int FirstRow(const FaultLog& log, const Outcome& run) {
        SCOPED_TRACE(log.m_Items.m_Name);
        const bool leaves = GetParam().m_bLeavesFiles;
        const RowsOfFiles& files = run.m_Kept.at(log.m_Items.m_Name);
        const Rows kept = Join(files);
        for (const int row : Join(run.m_Sent.at(log.m_Items.m_Name))) {
            const auto copies = std::ranges::count(kept, row);
            EXPECT_TRUE(copies == log.m_Items.m_nKeepCopy || (copies == 1 && leaves)) << row;
        }
        for (const auto& [path, rows] : run.m_Sent.at(log.m_Items.m_Name)) {
            EXPECT_FALSE(rows.empty() && GetParam().m_Call == Call::Rename) << path << " was not there to be sent";
        }
        if (log.IsDelivered()) {
            const bool dropped =
                log.m_Items.m_nKeepCopy == 0 && run.m_Failed.contains({RC_MISSING, log.m_Items.m_Name});
            return dropped ? LAST_DELIVERED + 1 : 1; // its sending could not be started
        }
        // What stood before has been rotated away: a row more when that came late, a file more when it could not move.
        const int oldest = kept.empty() ? 1 : kept.front();
        EXPECT_LE(oldest, log.m_Kept.front() + (leaves ? 3 : 1));
        EXPECT_GE(files.size() + (leaves ? 1 : 0), s_Sound.m_Kept[log.m_Items.m_Name].size());
        // A service that cannot make its directory begins another set elsewhere.
        return std::ssize(files) > log.m_Items.m_nFiles ? kept.back() : oldest;
    }

    static inline Outcome s_Sound; // a run without a fault
};

} // namespace

// Runs the scenario once for every call of a kind that it makes and every way in which that one can fail.
TEST_P(FaultTest, LosesAtMostTheRowsOfTheFailedOperation) {
    const std::ptrdiff_t descriptors = CountDescriptors();
    const char* const slow = std::getenv("KV_FAULT_STRIDE"); // for builds that are too slow for every call
    const bool memory = GetParam().m_Call == Call::Allocate;
    const int stride = slow == nullptr ? 1 : std::max(1, std::atoi(slow) / (memory ? 4 : 1));
    int runs = 0;
    std::map<EResult, std::set<std::string>> told;
    for (const int failure : GetParam().m_Failures) {
        bool struck = true;
        for (int nth = 1; struck && !HasFailure(); nth += stride) {
            SCOPED_TRACE("failure " + std::to_string(failure) + " at call " + std::to_string(nth));
            const InKernel here; // the test itself is spared
            const Fault fault(GetParam().m_Call, nth, failure);
            Life run;
            struck = Fault::HasStruck();
            runs += struck ? 1 : 0;
            if (!struck || failure == EINTR || failure == SHORT) {
                EXPECT_TRUE(run.m_Kept == s_Sound.m_Kept && run.m_Sent == s_Sound.m_Sent && !run.m_bTold);
            } else {
                CheckLoss(run);
                std::erase_if(run.m_Strays,
                              [](auto& path) { return GetParam().m_bLeavesFiles && path.ends_with('/'); });
            }
            EXPECT_EQ(run.m_Strays, std::vector<std::string>());
            EXPECT_EQ(CountDescriptors(), descriptors) << "a file was left open";
            for (const auto& [result, operation] : run.m_Failed) {
                told[result].insert(operation);
            }
        }
    }
    EXPECT_TRUE(!memory || stride > 1 || told == TOLD) << testing::PrintToString(told);
    RecordProperty("runs", runs);
    std::printf("fault runs: %d\n", runs);
}

INSTANTIATE_TEST_SUITE_P(Calls, FaultTest, testing::ValuesIn(CALLS),
                         [](const auto& test) { return std::string(test.param.m_pszName); });
