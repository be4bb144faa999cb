#include "tests/faults/FileFaults.h"
#include "tests/faults/Scenario.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <set>

namespace {

using Rows = std::set<int>;

Rows SetOf(const std::vector<int>& rows) {
    return {rows.begin(), rows.end()};
}

std::ptrdiff_t CountDescriptors() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

// The rows that are nowhere. What stood before the oldest row of a set that is not delivered has been rotated away.
Rows Missing(const FaultLog& log, const FaultOutcome& outcome) {
    Rows found = SetOf(outcome.m_Kept);
    found.insert(outcome.m_Sent.begin(), outcome.m_Sent.end());
    Rows missing;
    const int last = log.IsDelivered() ? Scenario::LAST_DELIVERED + 1 : Scenario::LAST;
    for (int row = log.IsDelivered() || found.empty() ? 1 : *found.begin(); row <= last; ++row) {
        if (found.count(row) == 0) {
            missing.insert(row);
        }
    }
    return missing;
}

// Rows gone because a rotation could not move their file, or came a row later than otherwise, stand before the oldest
// one that is left; they may be as many as this.
int AllowedAtTheOldEnd(FileCall call) {
    return call == FileCall::Rename ? 3 : 1;
}

class FileFaultTest : public testing::TestWithParam<FileCall> {
protected:
    static void SetUpTestSuite() {
        setenv("TZ", "UTC", 1);
        tzset();
        if (std::filesystem::is_directory("/dev/shm")) {
            setenv("TMPDIR", "/dev/shm", 1); // in memory: thousands of runs wait for no disk
        }
        s_pSound = std::make_unique<Scenario>();
    }
    static void TearDownTestSuite() { s_pSound.reset(); }

    // Calls that carry no row lose none, whatever becomes of them.
    static bool CarriesRows() {
        return GetParam() == FileCall::Open || GetParam() == FileCall::FStat || GetParam() == FileCall::PWrite ||
               GetParam() == FileCall::PRead;
    }

    static void CheckDelivered(const FaultLog& log, const FaultOutcome& outcome) {
        Rows twice = SetOf(outcome.m_Kept);
        std::erase_if(twice, [&](int row) { return SetOf(outcome.m_Sent).count(row) == 0; });
        if (log.m_nKeepCopy != 0) {
            EXPECT_EQ(twice, SetOf(outcome.m_Sent)) << "sent, but no longer there";
        } else if (GetParam() != FileCall::Unlink) {
            EXPECT_EQ(twice, Rows()) << "sent, and still there";
        }
    }

    static void CheckRotated(const FaultOutcome& outcome, const FaultOutcome& sound) {
        ASSERT_FALSE(outcome.m_Kept.empty());
        EXPECT_LE(outcome.m_Kept.front(), sound.m_Kept.front() + AllowedAtTheOldEnd(GetParam()));
        EXPECT_GE(outcome.m_Files.size() + (GetParam() == FileCall::Rename ? 1 : 0), sound.m_Files.size());
    }

    static void CheckLost(const Rows& lost, const Scenario& run) {
        // Saved requests are lost together: then the kernel has been told, or the file could not be opened again.
        const bool saved = run.m_bSaveFailed || run.m_bRestoreFailed || GetParam() == FileCall::Open;
        const Rows others = [&] {
            Rows rows = lost;
            std::erase_if(rows, [&](int row) { return saved && row >= Scenario::SAVED && row < Scenario::LAST; });
            return rows;
        }();
        EXPECT_LE(others.size(), CarriesRows() ? 1U : 0U);
    }

    static void Check(const Scenario& run, bool harmless) {
        EXPECT_EQ(run.m_Strays, std::vector<std::string>());
        if (harmless ||
            (GetParam() != FileCall::Rename && GetParam() != FileCall::Unlink && GetParam() != FileCall::RmDir)) {
            EXPECT_EQ(run.m_nJobDirectories, 0);
        }
        std::size_t logsThatLost = 0;
        Rows lost;
        for (const FaultLog& log : Scenario::Logs()) {
            SCOPED_TRACE(log.m_Name);
            const FaultOutcome& outcome = run.m_Outcomes.at(log.m_Name);
            EXPECT_TRUE(IsRising(outcome.m_Kept) && IsRising(outcome.m_Sent))
                << testing::PrintToString(outcome.m_Files);
            if (harmless) {
                EXPECT_TRUE(outcome == s_pSound->m_Outcomes.at(log.m_Name)) << testing::PrintToString(outcome.m_Files);
                continue;
            }
            if (log.IsDelivered()) {
                CheckDelivered(log, outcome);
            } else {
                CheckRotated(outcome, s_pSound->m_Outcomes.at(log.m_Name));
            }
            const Rows missing = Missing(log, outcome);
            logsThatLost += missing.empty() ? 0 : 1;
            lost.insert(missing.begin(), missing.end());
        }
        CheckLost(lost, run);
        EXPECT_TRUE(logsThatLost <= 1 || *lost.begin() >= Scenario::SAVED) << testing::PrintToString(lost);
    }

    static std::unique_ptr<Scenario> s_pSound; // a run without a fault
};

std::unique_ptr<Scenario> FileFaultTest::s_pSound;

const std::map<FileCall, std::string> CALLS{
    {FileCall::Open, "open"},     {FileCall::FStat, "fstat"},   {FileCall::Stat, "stat"},
    {FileCall::PWrite, "pwrite"}, {FileCall::PRead, "pread"},   {FileCall::Truncate, "truncate"},
    {FileCall::Rename, "rename"}, {FileCall::Unlink, "unlink"}, {FileCall::MkDir, "mkdir"},
    {FileCall::RmDir, "rmdir"},   {FileCall::Close, "close"}};

std::vector<std::pair<Failure, const char*>> FailuresOf(FileCall call) {
    std::vector<std::pair<Failure, const char*>> failures{{Failure::NoSpace, "ENOSPC"},
                                                          {Failure::InOut, "EIO"},
                                                          {Failure::Access, "EACCES"},
                                                          {Failure::TooManyFiles, "EMFILE"},
                                                          {Failure::Interrupted, "EINTR"}};
    if (call == FileCall::PRead || call == FileCall::PWrite) {
        failures.emplace_back(Failure::Short, "short");
    }
    if (call == FileCall::PWrite) {
        failures.emplace_back(Failure::DiskFull, "short, then ENOSPC");
    }
    return failures;
}

} // namespace

// Runs the scenario once for every call of a kind that it makes and every way in which that one can fail.
TEST_P(FileFaultTest, LosesAtMostTheRowsOfTheFailedOperation) {
    const std::ptrdiff_t descriptors = CountDescriptors();
    const char* const stride = std::getenv("KV_FAULT_STRIDE"); // for builds that are too slow for every call
    int runs = 0;
    for (const auto& [failure, name] : FailuresOf(GetParam())) {
        bool struck = true;
        for (int nth = 1; struck && !HasFailure(); nth += stride != nullptr ? std::atoi(stride) : 1) {
            SCOPED_TRACE(std::string(name) + " at call " + std::to_string(nth));
            const FileFault fault(GetParam(), nth, failure);
            const Scenario run;
            struck = fault.HasStruck();
            runs += struck ? 1 : 0;
            Check(run, !struck || failure == Failure::Interrupted || failure == Failure::Short);
            EXPECT_EQ(CountDescriptors(), descriptors) << "a file was left open";
        }
    }
    RecordProperty("runs", runs);
    std::printf("fault runs: %d\n", runs);
}

INSTANTIATE_TEST_SUITE_P(Calls, FileFaultTest, testing::ValuesIn([] {
                             std::vector<FileCall> calls;
                             for (const auto& [call, name] : CALLS) {
                                 calls.push_back(call);
                             }
                             return calls;
                         }()),
                         [](const auto& test) { return CALLS.at(test.param); });
