#include "tests/faults/Faults.h"
#include "tests/faults/Scenario.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>

namespace {

using Rows = std::set<int>;

std::ptrdiff_t CountDescriptors() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

Rows Both(const Rows& one, const Rows& other) {
    Rows both;
    std::ranges::set_intersection(one, other, std::inserter(both, both.end()));
    return both;
}

struct FileCall {
    Call m_Call;
    const char* m_pszName;
    bool m_bCarriesRows = false;   // others lose none, whatever becomes of them
    bool m_bLeavesFiles = false;   // a file or directory that is to go away may stay
    std::vector<int> m_Parts = {}; // how it can fail besides with an error
};

const std::vector<FileCall> CALLS{{Call::Open, "open", true},
                                  {Call::FStat, "fstat", true},
                                  {Call::Stat, "stat"},
                                  {Call::PWrite, "pwrite", true, false, {SHORT, DISK_FULL}},
                                  {Call::PRead, "pread", true, false, {SHORT}},
                                  {Call::Truncate, "truncate"},
                                  {Call::Rename, "rename", false, true},
                                  {Call::Unlink, "unlink", false, true},
                                  {Call::MkDir, "mkdir"},
                                  {Call::RmDir, "rmdir", false, true},
                                  {Call::Close, "close"}};

class FileFaultTest : public testing::TestWithParam<FileCall> {
protected:
    static void SetUpTestSuite() {
        setenv("TZ", "UTC", 1);
        tzset();
        if (std::filesystem::is_directory("/dev/shm")) {
            setenv("TMPDIR", "/dev/shm", 1); // in memory: thousands of runs wait for no disk
        }
        const Scenario sound;
        s_Sound = sound.m_Outcomes;
        EXPECT_EQ(sound.m_Strays, std::vector<std::string>());
        for (const FaultLog& log : Scenario::Logs()) {
            const FaultOutcome& outcome = s_Sound.at(log.m_Name);
            EXPECT_EQ(outcome.m_Kept, log.m_Kept) << log.m_Name;
            EXPECT_EQ(outcome.m_Sent, log.IsDelivered() ? std::vector<int>({1, 2, 3}) : std::vector<int>());
        }
    }

    // Checks the files of one log file, and gives its rows that are nowhere. What stood before the oldest row of a set
    // that is not delivered has been rotated away.
    static Rows Missing(const FaultLog& log, const FaultOutcome& outcome) {
        Rows found(outcome.m_Kept.begin(), outcome.m_Kept.end());
        const Rows sent(outcome.m_Sent.begin(), outcome.m_Sent.end());
        int first = 1;
        if (!log.IsDelivered()) {
            // A rotation that could not move its file, or came a row later than otherwise, may cost that at the old end.
            const bool unmoved = GetParam().m_Call == Call::Rename;
            EXPECT_FALSE(found.empty());
            first = found.empty() ? first : *found.begin();
            EXPECT_LE(first, log.m_Kept.front() + (unmoved ? 3 : 1));
            EXPECT_GE(outcome.m_Files.size() + (unmoved ? 1 : 0), s_Sound.at(log.m_Name).m_Files.size());
        } else if (log.m_nKeepCopy != 0) {
            EXPECT_EQ(Both(found, sent), sent) << "sent, but no longer there";
        } else if (GetParam().m_Call != Call::Unlink) {
            EXPECT_EQ(Both(found, sent), Rows()) << "sent, and still there";
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

    // After a fault: only the rows of the failed operation are lost, all of one log file.
    static void CheckLoss(const Scenario& run) {
        int logsThatLost = 0;
        Rows lost;
        for (const FaultLog& log : Scenario::Logs()) {
            SCOPED_TRACE(log.m_Name);
            const Rows missing = Missing(log, run.m_Outcomes.at(log.m_Name));
            logsThatLost += missing.empty() ? 0 : 1;
            lost.insert(missing.begin(), missing.end());
        }
        EXPECT_TRUE(logsThatLost <= 1 || *lost.begin() >= Scenario::SAVED) << testing::PrintToString(lost);
        // Saved requests are lost together: then the kernel has been told, or the file could not be opened again.
        if (run.m_bSaveFailed || run.m_bRestoreFailed || GetParam().m_Call == Call::Open) {
            std::erase_if(lost, [](int row) { return row >= Scenario::SAVED && row < Scenario::LAST; });
        }
        EXPECT_LE(lost.size(), GetParam().m_bCarriesRows ? 1U : 0U) << testing::PrintToString(lost);
    }

    static std::map<std::string, FaultOutcome> s_Sound; // of a run without a fault
};

std::map<std::string, FaultOutcome> FileFaultTest::s_Sound;

} // namespace

// Runs the scenario once for every call of a kind that it makes and every way in which that one can fail.
TEST_P(FileFaultTest, LosesAtMostTheRowsOfTheFailedOperation) {
    const std::ptrdiff_t descriptors = CountDescriptors();
    const char* const stride = std::getenv("KV_FAULT_STRIDE"); // for builds that are too slow for every call
    std::vector<int> failures{ENOSPC, EIO, EACCES, EMFILE, EINTR};
    failures.insert(failures.end(), GetParam().m_Parts.begin(), GetParam().m_Parts.end());
    int runs = 0;
    for (const int failure : failures) {
        bool struck = true;
        for (int nth = 1; struck && !HasFailure(); nth += stride != nullptr ? std::atoi(stride) : 1) {
            SCOPED_TRACE("failure " + std::to_string(failure) + " at call " + std::to_string(nth));
            const Fault fault(GetParam().m_Call, nth, failure);
            const Scenario run;
            struck = Fault::HasStruck();
            runs += struck ? 1 : 0;
            const bool harmless = !struck || failure == EINTR || failure == SHORT;
            EXPECT_EQ(run.m_Strays, std::vector<std::string>());
            if (harmless || !GetParam().m_bLeavesFiles) {
                EXPECT_EQ(run.m_nJobDirectories, 0);
            }
            if (harmless) {
                EXPECT_TRUE(run.m_Outcomes == s_Sound);
            } else {
                CheckLoss(run);
            }
            EXPECT_EQ(CountDescriptors(), descriptors) << "a file was left open";
        }
    }
    RecordProperty("runs", runs);
    std::printf("fault runs: %d\n", runs);
}

INSTANTIATE_TEST_SUITE_P(Calls, FileFaultTest, testing::ValuesIn(CALLS),
                         [](const auto& test) { return std::string(test.param.m_pszName); });
