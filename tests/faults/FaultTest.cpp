#include "tests/faults/Faults.h"
#include "tests/faults/Scenario.h"
#include "tests/kernel/InKernel.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>

namespace {

struct FaultCall {
    Call m_Call;
    const char* m_pszName;
    unsigned m_nRows = 0;        // that may be lost with it; most calls lose none, whatever becomes of them
    bool m_bLeavesFiles = false; // a file or directory may stay where it is
    std::vector<int> m_Failures{ENOSPC, EIO, EACCES, EMFILE, EINTR};
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
std::vector<int> Join(const RowsOfFiles& files) {
    std::multiset<std::vector<int>> sorted;
    for (const auto& [path, rows] : files) {
        sorted.insert(rows);
    }
    std::vector<int> all;
    for (const std::vector<int>& rows : sorted) {
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
        s_Sound = Scenario::Run();
        EXPECT_EQ(s_Sound.m_Strays, std::vector<std::string>());
        for (const FaultLog& log : Scenario::LOGS) {
            const std::string& name = log.m_Items.m_Name;
            EXPECT_EQ(Join(s_Sound.m_Kept[name]), log.m_Kept) << name;
            EXPECT_EQ(Join(s_Sound.m_Sent[name]), log.IsDelivered() ? std::vector<int>({1, 2, 3}) : std::vector<int>());
        }
    }

    // Only the row of the failed operation is lost, and none if the operation told.
    static void CheckLoss(const Scenario& run) {
        std::set<std::pair<std::string, int>> lost;
        for (const FaultLog& log : Scenario::LOGS) {
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
            std::erase_if(lost, [](const auto& row) { return std::ranges::count(Scenario::SAVED, row.second) != 0; });
        }
        EXPECT_LE(lost.size(), run.m_bTold ? 0U : GetParam().m_nRows) << testing::PrintToString(lost);
    }

    // Checks where the rows of a log file are, and gives the first one that must be somewhere.
    static int FirstRow(const FaultLog& log, const Scenario& run) {
        SCOPED_TRACE(log.m_Items.m_Name);
        const bool leaves = GetParam().m_bLeavesFiles;
        const RowsOfFiles& files = run.m_Kept.at(log.m_Items.m_Name);
        const std::vector<int> kept = Join(files);
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
            return dropped ? Scenario::LAST_DELIVERED + 1 : 1; // its sending could not be started
        }
        // What stood before has been rotated away: a row more when that came late, a file more when it could not move.
        const int oldest = kept.empty() ? 1 : kept.front();
        EXPECT_LE(oldest, log.m_Kept.front() + (leaves ? 3 : 1));
        EXPECT_GE(files.size() + (leaves ? 1 : 0), s_Sound.m_Kept[log.m_Items.m_Name].size());
        // A service that cannot make its directory begins another set elsewhere.
        return std::ssize(files) > log.m_Items.m_nFiles ? kept.back() : oldest;
    }

    static inline Scenario s_Sound; // a run without a fault
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
            Scenario run = Scenario::Run();
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
