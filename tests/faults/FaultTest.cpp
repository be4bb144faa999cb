#include "tests/faults/Faults.h"
#include "tests/faults/Scenario.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>

namespace {

using Rows = std::set<int>;

// The kernel log: a byte order mark, and this event, with two bytes a character.
constexpr std::size_t EVENT_SIZE = 2 * std::string_view("01-31-2024 13:05:09.042 S N: T\n").size();

std::ptrdiff_t CountDescriptors() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

Rows Both(const Rows& one, const Rows& other) {
    Rows both;
    std::ranges::set_intersection(one, other, std::inserter(both, both.end()));
    return both;
}

const std::vector<int> ERRORS{ENOSPC, EIO, EACCES, EMFILE, EINTR};

struct FaultCall {
    Call m_Call;
    const char* m_pszName;
    unsigned m_nRows = 0;        // that may be lost with it; most calls lose none, whatever becomes of them
    int m_nOldEnd = 1;           // rows at the old end that may go too soon, as a rotation is done late, or by halves
    bool m_bLeavesFiles = false; // a file or directory that is to go away may stay
    std::vector<int> m_Failures = ERRORS;
};

const std::vector<FaultCall> CALLS{
    {Call::Allocate, "new", 1, 3, true, {ENOMEM}},
    {Call::Open, "open", 1},
    {Call::FStat, "fstat", 1},
    {Call::Stat, "stat"},
    {Call::PWrite, "pwrite", 1, 1, false, {ENOSPC, EIO, EACCES, EMFILE, EINTR, SHORT, DISK_FULL}},
    {Call::PRead, "pread", 1, 1, false, {ENOSPC, EIO, EACCES, EMFILE, EINTR, SHORT}},
    {Call::Truncate, "truncate"},
    {Call::Rename, "rename", 0, 3, true},
    {Call::Unlink, "unlink", 0, 1, true},
    {Call::MkDir, "mkdir"},
    {Call::RmDir, "rmdir", 0, 1, true},
    {Call::Close, "close"}};

class FaultTest : public testing::TestWithParam<FaultCall> {
protected:
    static void SetUpTestSuite() {
        setenv("TZ", "UTC", 1);
        tzset();
        if (std::filesystem::is_directory("/dev/shm")) {
            setenv("TMPDIR", "/dev/shm", 1); // in memory: thousands of runs wait for no disk
        }
        s_pSound = std::make_unique<Scenario>();
        EXPECT_EQ(s_pSound->m_Strays, std::vector<std::string>());
        EXPECT_EQ(s_pSound->m_Results, std::set<EResult>{RC_OK});
        EXPECT_EQ(s_pSound->m_KernelLog.size(), 2 + 4 * EVENT_SIZE);
        for (const FaultLog& log : Scenario::Logs()) {
            const FaultOutcome& outcome = s_pSound->m_Outcomes.at(log.m_Name);
            EXPECT_EQ(outcome.m_Kept, log.m_Kept) << log.m_Name;
            EXPECT_EQ(outcome.m_Sent, log.IsDelivered() ? std::vector<int>({1, 2, 3}) : std::vector<int>());
        }
    }
    static void TearDownTestSuite() { s_pSound.reset(); }

    // Checks the files of one log file, and gives its rows that are nowhere. What stood before the oldest row of a set
    // that is not delivered has been rotated away.
    static Rows Missing(const FaultLog& log, const Scenario& run) {
        const FaultOutcome& outcome = run.m_Outcomes.at(log.m_Name);
        Rows found(outcome.m_Kept.begin(), outcome.m_Kept.end());
        const Rows sent(outcome.m_Sent.begin(), outcome.m_Sent.end());
        int first = 1;
        if (!log.IsDelivered()) {
            EXPECT_FALSE(found.empty());
            first = found.empty() ? first : *found.begin();
            EXPECT_LE(first, log.m_Kept.front() + GetParam().m_nOldEnd);
            const std::size_t files = s_pSound->m_Outcomes.at(log.m_Name).m_Files.size();
            EXPECT_GE(outcome.m_Files.size() + (GetParam().m_nOldEnd > 1 ? 1 : 0), files);
        } else if (log.m_nKeepCopy != 0) {
            EXPECT_EQ(Both(found, sent), sent) << "sent, but no longer there";
        } else if (GetParam().m_Call != Call::Unlink && !Fault::HasTakenMemory()) {
            EXPECT_EQ(Both(found, sent), Rows()) << "sent, and still there";
        } else if (Fault::HasTakenMemory() && run.m_Results.count(RC_MISSING) != 0) {
            first = Scenario::LAST_DELIVERED + 1; // its sending could not be started, and it is not kept
        }
        found.insert(sent.begin(), sent.end());
        Rows missing;
        for (int row = first; row <= (log.IsDelivered() ? Scenario::LAST_DELIVERED + 1 : Scenario::LAST); ++row) {
            if (found.count(row) == 0) {
                missing.insert(row);
            }
        }
        return missing;
    }

    // After a fault: only the rows of the failed operation are lost, all of one log file; none if it told.
    static void CheckLoss(const Scenario& run) {
        int logsThatLost = 0;
        Rows lost;
        for (const FaultLog& log : Scenario::Logs()) {
            SCOPED_TRACE(log.m_Name);
            const Rows missing = Missing(log, run);
            logsThatLost += missing.empty() ? 0 : 1;
            lost.insert(missing.begin(), missing.end());
        }
        EXPECT_TRUE(logsThatLost <= 1 || *lost.begin() >= Scenario::SAVED) << testing::PrintToString(lost);
        // Saved requests are lost together: then the kernel has been told, or the file could not be opened again.
        if (run.m_bSaveFailed || run.m_bRestoreFailed || GetParam().m_Call == Call::Open) {
            std::erase_if(lost, [](int row) { return row >= Scenario::SAVED && row < Scenario::LAST; });
        }
        EXPECT_LE(lost.size(), run.m_bTold ? 0U : GetParam().m_nRows) << testing::PrintToString(lost);
        const std::size_t events = run.m_KernelLog.size() / EVENT_SIZE;
        EXPECT_EQ(run.m_KernelLog, s_pSound->m_KernelLog.substr(0, 2 + events * EVENT_SIZE));
        EXPECT_GE(events + GetParam().m_nRows, 4U);
    }

    static std::unique_ptr<Scenario> s_pSound; // a run without a fault
};

std::unique_ptr<Scenario> FaultTest::s_pSound;

} // namespace

// Runs the scenario once for every call of a kind that it makes and every way in which that one can fail.
TEST_P(FaultTest, LosesAtMostTheRowsOfTheFailedOperation) {
    const std::ptrdiff_t descriptors = CountDescriptors();
    const char* const stride = std::getenv("KV_FAULT_STRIDE"); // for builds that are too slow for every call
    int runs = 0;
    std::set<EResult> results;
    for (const int failure : GetParam().m_Failures) {
        bool struck = true;
        for (int nth = 1; struck && !HasFailure(); nth += stride != nullptr ? std::atoi(stride) : 1) {
            SCOPED_TRACE("failure " + std::to_string(failure) + " at call " + std::to_string(nth));
            const Fault fault(GetParam().m_Call, nth, failure);
            const Scenario run;
            struck = Fault::HasStruck();
            runs += struck ? 1 : 0;
            results.insert(run.m_Results.begin(), run.m_Results.end());
            const bool harmless = !struck || failure == EINTR || failure == SHORT;
            EXPECT_EQ(run.m_Strays, std::vector<std::string>());
            if (harmless || !GetParam().m_bLeavesFiles) {
                EXPECT_EQ(run.m_nJobDirectories, 0);
            }
            if (harmless) {
                EXPECT_TRUE(run.m_Outcomes == s_pSound->m_Outcomes && run.m_KernelLog == s_pSound->m_KernelLog);
            } else {
                CheckLoss(run);
            }
            EXPECT_EQ(CountDescriptors(), descriptors) << "a file was left open";
        }
    }
    if (GetParam().m_Call == Call::Allocate) {
        EXPECT_EQ(results, (std::set<EResult>{RC_OK, RC_MISSING, RC_NOT_MADE})); // as a delivery ends without memory
    }
    RecordProperty("runs", runs);
    std::printf("fault runs: %d\n", runs);
}

INSTANTIATE_TEST_SUITE_P(Calls, FaultTest, testing::ValuesIn(CALLS),
                         [](const auto& test) { return std::string(test.param.m_pszName); });
