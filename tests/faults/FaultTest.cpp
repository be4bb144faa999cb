// The life of a service that meets every use of files and memory, once for every call that it makes and every way in
// which that one call can fail.

#include "base/Guarded.h"
#include "base/WARM_RESTART_STRUCT.h"
#include "tests/ServiceFixture.h"
#include "tests/faults/Faults.h"

#include <algorithm>
#include <span>

namespace {

using Rows = std::vector<int>;
using RowsOfFiles = std::map<std::string, Rows>; // by known path

// In memory, thousands of runs wait for no disk.
const int IN_MEMORY = std::filesystem::is_directory("/dev/shm") ? setenv("TMPDIR", "/dev/shm", 1) : 0;

constexpr int LAST_DELIVERED = 3; // one more row is written afterwards
constexpr int SAVED[] = {10, 11}; // by the first service, and restored by the second
const std::vector<SpecItems> LOGS{
    // name, directory, file, limit (of two rows), number of files, format, encoding, delivery, copy kept, e-mail
    {"plain", "logs", "plain-%i.log", 280, 9, 0, 1, 1, 0},
    {"comma", "logs", "comma-%i.log", 166, 9, 1, 0, 1, 0},
    {"html", "logs", "html-%i.log", 789, 9, 2, 0, 1, 0},
    {"upKept", "logs", "upKept-%i.log", 166, 2, 1, 0, 2, 1},
    {"upDeleted", "logs", "upDeleted-%i.log", 139, 2, 0, 0, 2, 0},
    {"mailKept", "logs", "mailKept-%i.log", 789, 2, 2, 0, 3, 1, "mail"},
    {"mailDeleted", "logs", "mailDeleted-%i.log", 334, 3, 1, 1, 3, 0, "mail"},
    {"Kavro", "", "", 0, 1, 3, 1}};
const auto CONFIGURED = std::span(LOGS).first(7); // the service makes the kernel log itself

bool IsDelivered(const SpecItems& log) {
    return log.m_nDelivery != 1;
}

// A record whose name is the number of its row, as a letter.
EONEVENTSTRUCT RowRecord(int row) {
    return MakeRecord(&L"A\0B\0C\0D\0E\0F\0G\0H\0I\0J\0K\0L\0M"[2 * row]);
}

// The header and the row of each format, and of the kernel log. '?' is the number of the row, as a letter.
const std::string ROW = "01-31-2024,13:05:09.042,?,T,S,D,Not Active,Not ACKED,7,17\n";
const std::pair<std::string, std::string> FORMATS[] = {{Replaced(ALARM_COLUMNS, ",", ""), Replaced(ROW, ",", "")},
                                                       {ALARM_COLUMNS, ROW},
                                                       {PageBegin(ALARM_COLUMNS), PageRow(ROW)},
                                                       {"", "01-31-2024 13:05:09.042 S ?: T\n"}};

// The numbers of a file's rows. Fails the test unless it is, byte for byte, a header, and whole rows and footers.
Rows RowsIn(const SpecItems& log, const std::string& bytes) {
    // What continues the HTML file of an earlier service has rows of heading cells, behind that one's footer.
    const auto plain = [](const std::string& text) { return Replaced(Replaced(text, PAGE_END, ""), "TH>", "TD>"); };
    std::string text = bytes;
    if (log.m_nUnicode != 0 && !bytes.empty()) {
        std::erase(text, '\0');
        text.erase(0, 2);
        EXPECT_EQ(bytes, "\xFF\xFE" + Utf16(text));
    }
    text = plain(text);
    const auto& [header, row] = FORMATS[log.m_nFormat];
    std::string whole = text.empty() ? "" : plain(header);
    Rows rows;
    for (std::size_t at = whole.size() + row.find('?'); at < text.size(); at += row.size()) {
        whole += Replaced(row, "?", text.substr(at, 1));
        rows.push_back(text[at] - 'A');
    }
    EXPECT_EQ(text, whole) << "torn";
    return rows;
}

RowsOfFiles RowsIn(const SpecItems& log, const Workplace::Files& files) {
    RowsOfFiles rows;
    for (const auto& [path, bytes] : files) {
        if (('/' + path).find('/' + log.m_Name) != std::string::npos) {
            SCOPED_TRACE(path);
            rows[Workplace::Known(path)] = RowsIn(log, bytes);
        }
    }
    return rows;
}

struct Places {
    RowsOfFiles m_Kept; // on disk
    RowsOfFiles m_Sent; // handed to an upload or an e-mail
    bool operator==(const Places&) const = default;
};

// Rows through rotations of each format, deliveries of each kind, early and late events, a restart, a warm save; then a
// second service that restores and goes on. Faults strike in the module and in the kernel that it calls. What allocates
// once is called while no worker has work: beside that, the n-th allocation of a life is not always the same one.
class Life : Service {
public:
    Life() {
        WriteSection({CONFIGURED.begin(), CONFIGURED.end()});
        m_Kernel.m_EMail.m_Definitions["mail"] = "";
        m_Kernel.m_Upload.m_Notices.m_When = TestNotices::When::Inside;
        RunFirst();
        m_Kernel.m_Control.m_bRestoreWanted = true;
        RunSecond();
        EPersistent::RemoveFactories();
    }

    std::map<std::string, Places> m_Logs;              // by the log file's name
    std::map<EResult, std::set<std::string>> m_Failed; // what was asked for, and deliveries by their log file
    std::vector<std::string> m_Strays;                 // files that belong to no log file, and directories of jobs
    bool m_bTold = false;                              // that something failed; it was asked for once more

private:
    void RunFirst() {
        Begin();
        Report(1); // before there is a kernel log
        for (const SpecItems& log : CONFIGURED) {
            const int before = IsDelivered(log) ? LAST_DELIVERED : 8;
            EString name = Wide(log.m_Name);
            EString action = IsDelivered(log) ? ACTION_NAME_DELIVERY : ACTION_NAME_RESTART;
            EONEVENTSTRUCT record = MakeRecord();
            WriteRows(log, 1, before);
            Do("Invoke", [&] { return m_pService->Invoke(action, name, nullptr, 1, &record, nullptr); });
            WriteRows(log, before + 1, before + 1);
        }
        ProcessAll();
        m_Kernel.m_EMail.m_Notices.Deliver();
        EXPECT_TRUE(m_pService->m_Deliveries.IsEmpty());
        WARM_RESTART_STRUCT sections{};
        Do("ListSections", [&] { return m_pService->WarmRestart(3, &sections); });
        delete[] sections.m_pszSections;
        Do("Start", [&] { return m_pService->Start(); });
        Do("PrepareToStop", [&] { return m_pService->PrepareToStop(); });
        Report(2); // writes both
        EString file;
        int format = 0;
        Do("GetAgentLogFile", [&] { return m_pService->GetAgentLogFile(file, format); });
        for (const SpecItems& log : CONFIGURED) {
            WriteRows(log, SAVED[0], IsDelivered(log) ? 0 : SAVED[1]);
        }
        Do("Save", [&] { return m_pService->WarmRestart(1, nullptr); });
        NoteFiles(true);
        Do("Stop", [&] { return m_pService->Stop(); });
    }

    void RunSecond() {
        Begin();
        for (const SpecItems& log : CONFIGURED) {
            WriteRows(log, 12, IsDelivered(log) ? 0 : 12);
        }
        Do("Forget", [&] { return m_pService->WarmRestart(2, nullptr); });
        Do("Start", [&] { return m_pService->Start(); });
        Report(3);
        EXPECT_TRUE(Eventually([&] { return Queued().empty(); }));
        Do("PrepareToStop", [&] { return m_pService->PrepareToStop(); });
        Report(4);
        NoteFiles(false);
        Do("Stop", [&] { return m_pService->Stop(); });
    }

    // Has the module do something. What fails is asked for once more: nothing is in the way then.
    template <class Operation>
    void Do(const char* name, Operation operation) {
        EResult result = RC_OK;
        InKernel::Leave([&] { result = operation(); });
        if (Failed(result)) {
            m_Failed[result].insert(name);
            m_bTold = true;
            InKernel::Leave([&] { result = operation(); });
        }
        EXPECT_EQ(result, RC_OK) << name;
    }

    void Begin() {
        Do("Construct", [&] {
            return Guarded([&] { return (m_pService = kvLogFileInitService(&m_Kernel)) == g_pELogFile ? RC_OK : 1; });
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
        if (m_Kernel.m_Reporter.Count(MSG_PENDING_NOT_RESTORED) != 0) {
            m_Failed[RC_READ].insert("saved requests");
        }
    }

    void Report(int row) {
        EONEVENTSTRUCT record = RowRecord(row);
        Do("ReportEvent", [&] { return m_pService->ReportEvent(&record); });
    }

    void WriteRows(const SpecItems& log, int first, int last) {
        EString name = Wide(log.m_Name);
        for (int row = first; row <= last; ++row) {
            EONEVENTSTRUCT record = RowRecord(row);
            Do("LogAlarm", [&] { return m_pService->LogAlarm(name, &record); });
        }
    }

    // What is queued, as the worker does it.
    void ProcessAll() {
        while (auto* info = static_cast<ELogInfo*>(m_pService->m_LogQueue.RemoveHead())) {
            const std::unique_ptr<ELogInfo> request(info);
            EResult result = RC_OK;
            InKernel::Leave([&] { result = Guarded([&] { return m_pService->ProcessLogFile(info); }); });
            if (Failed(result)) {
                const std::string log = Narrow(info->m_pFileSpec->m_Name);
                const bool jobless = m_Kernel.m_Reporter.Count(MSG_NOT_CREATED) != 0;
                m_Failed[result].insert(info->m_Action != ACTION_DELIVERY ? "Row" : jobless ? log + " job" : log);
            }
        }
    }

    void NoteFiles(bool delivered) {
        Files sent;
        for (const auto* sendings : {&m_Kernel.m_Upload.m_Sent, &m_Kernel.m_EMail.m_Sent}) {
            for (const Sending& sending : *sendings) {
                sent.insert(sending.m_Contents.begin(), sending.m_Contents.end());
            }
        }
        const Files kept = Found();
        for (const SpecItems& log : LOGS) {
            if (IsDelivered(log) == delivered) {
                m_Logs[log.m_Name] = {RowsIn(log, kept), RowsIn(log, sent)};
            }
        }
        for (const auto& [path, bytes] : kept) {
            if (!path.ends_with(".log") && path != "kvLogFile.warm") {
                m_Strays.push_back(path);
            }
        }
    }
};

struct FaultCall {
    Call m_Call;
    const char* m_pszName;
    unsigned m_nRows = 0;        // that may be lost with it; most calls lose none, whatever becomes of them
    bool m_bLeavesFiles = false; // a file or directory may stay where it is
    std::vector<int> m_Failures{ENOSPC, EIO, EACCES, EMFILE, EINTR};
};

const FaultCall CALLS[] = {{Call::Allocate, "new", 1, true, {ENOMEM}},
                           {Call::Open, "open", 1},
                           {Call::FStat, "fstat", 1},
                           {Call::Stat, "stat"},
                           {Call::PWrite, "pwrite", 1, false, {ENOSPC, EIO, EACCES, EMFILE, EINTR, SHORT, DISK_FULL}},
                           {Call::PRead, "pread", 1, false, {ENOSPC, EIO, EACCES, EMFILE, EINTR, SHORT}},
                           {Call::Truncate, "truncate"},
                           {Call::Rename, "rename", 2, true},
                           {Call::Unlink, "unlink", 0, true},
                           {Call::MkDir, "mkdir"},
                           {Call::RmDir, "rmdir", 0, true},
                           {Call::Close, "close"}};

// What tells that it was not done, as memory runs out at each allocation in turn.
const std::set<std::string> TOLD{
    "Construct", "PrepareToStart",  "Restore",    "Start",         "ReportEvent",  "LogAlarm",       "Invoke",
    "Row",       "GetAgentLogFile", "Save",       "ListSections",  "Forget",       "upKept",         "upDeleted",
    "mailKept",  "mailDeleted",     "upKept job", "upDeleted job", "mailKept job", "mailDeleted job"};

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
    // Checks where the rows of a log file are, and gives those that are nowhere though they must be somewhere.
    static Rows Lost(const SpecItems& log, Life& run) {
        SCOPED_TRACE(log.m_Name);
        const auto& [call, name, mayLose, leaves, failures] = GetParam();
        const Places& places = run.m_Logs[log.m_Name];
        const Rows kept = Join(places.m_Kept);
        const Rows sent = Join(places.m_Sent);
        for (const int row : sent) {
            const auto copies = std::ranges::count(kept, row);
            EXPECT_TRUE(copies == log.m_nKeepCopy || (copies == 1 && leaves)) << row;
        }
        std::set<int> found(kept.begin(), kept.end());
        found.insert(sent.begin(), sent.end());
        // Saved requests are lost together: then the kernel has been told, or the file could not be opened again.
        if (call == Call::Open || (call != Call::PWrite && run.m_Failed[RC_READ].contains("saved requests"))) {
            found.insert(std::begin(SAVED), std::end(SAVED));
        }
        // An early event is written with the next one: when memory runs out then, only that one is reported again.
        if (log.m_Name == "Kavro" && run.m_Failed[RC_NOT_MADE].contains("ReportEvent")) {
            found.insert(1);
        }
        // What is not kept goes with a sending that could not be started.
        const bool dropped = log.m_nKeepCopy == 0 && run.m_Failed[RC_MISSING].contains(log.m_Name);
        const int last = log.m_nMaxSize == 0 || IsDelivered(log) ? LAST_DELIVERED + 1 : 12;
        Rows lost;
        for (int row = dropped ? last : 1; row <= last; ++row) {
            if (!found.contains(row)) {
                lost.push_back(row);
            }
        }
        return lost;
    }

    Life m_Sound; // a run without a fault
};

} // namespace

TEST_P(FaultTest, LosesAtMostTheRowsOfTheFailedOperation) {
    const auto& [call, name, mayLose, leaves, failures] = GetParam();
    for (const SpecItems& log : LOGS) {
        EXPECT_EQ(Lost(log, m_Sound), Rows());
        EXPECT_EQ(Join(m_Sound.m_Logs[log.m_Name].m_Sent), (IsDelivered(log) ? Rows{1, 2, 3} : Rows()));
    }
    const std::ptrdiff_t descriptors = CountDescriptors();
    const char* const slow = std::getenv("KV_FAULT_STRIDE"); // for builds that are too slow for every call
    const bool memory = call == Call::Allocate;
    const int stride = slow == nullptr ? 1 : std::max(1, std::atoi(slow) / (memory ? 4 : 1));
    std::set<std::string> told;
    for (const int failure : failures) {
        bool struck = true;
        for (int nth = 1; struck && !HasFailure(); nth += stride) {
            SCOPED_TRACE("failure " + std::to_string(failure) + " at call " + std::to_string(nth));
            const InKernel here; // the test itself is spared
            const Fault fault(call, nth, failure);
            Life run;
            struck = Fault::HasStruck();
            told.merge(std::set(run.m_Failed[RC_NOT_MADE]));
            if (!struck || failure == EINTR || failure == SHORT) {
                EXPECT_TRUE(run.m_Logs == m_Sound.m_Logs && !run.m_bTold);
            }
            std::map<std::string, Rows> lost;
            std::size_t count = 0;
            for (const SpecItems& log : LOGS) {
                count += (lost[log.m_Name] = Lost(log, run)).size();
            }
            EXPECT_LE(count, run.m_bTold ? 0U : mayLose) << testing::PrintToString(lost);
            std::erase_if(run.m_Strays,
                          [leaves = leaves](const std::string& path) { return leaves && path.ends_with('/'); });
            EXPECT_EQ(run.m_Strays, std::vector<std::string>());
            EXPECT_EQ(CountDescriptors(), descriptors) << "a file was left open";
        }
    }
    EXPECT_TRUE(!memory || stride > 1 || told == TOLD) << testing::PrintToString(told);
}

INSTANTIATE_TEST_SUITE_P(Calls, FaultTest, testing::ValuesIn(CALLS),
                         [](const auto& test) { return std::string(test.param.m_pszName); });
