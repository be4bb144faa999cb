#include "base/InterfaceIds.h"
#include "tests/Reports.h"
#include "tests/Workplace.h"
#include "tests/kernel/LoadedModule.h"
#include "tests/kernel/TestKernel.h"

#include <gtest/gtest.h>

namespace {

constexpr int THREADS = 8;
constexpr int IDENTIFIER = 3;
const std::vector<std::string> FILES{"Kavro.log", "logs/alarms.csv", "logs/events.csv", "logs/values.html"};

// The five kinds of reports in turn.
EResult Report(ILogFile& log, IAction& actions, int thread, int number) {
    const std::wstring mark = Mark(thread, number);
    EONEVENTSTRUCT record = MakeRecord(L"N", mark.c_str());
    record.m_nIdentifier = IDENTIFIER;
    EString alarms = L"Alarms@3";
    EString events = L"Events@3";
    EString values = L"Values@3";
    EString logAlarm = L"DoLogAlarmToFile";
    EString logEvent = L"DoLogEventToFile";
    switch (number % 5) {
    case 0:
        return log.ReportEvent(&record);
    case 1:
        return log.LogAlarm(alarms, &record);
    case 2:
        record.m_Value.SetText(mark.c_str());
        return log.LogSnapShot(values, &record, 1);
    case 3:
        return actions.Invoke(logAlarm, alarms, nullptr, 1, &record, nullptr);
    default:
        return actions.Invoke(logEvent, events, nullptr, 1, &record, nullptr);
    }
}

// One life of the module in one process's life, from loading to unloading.
class Life {
public:
    explicit Life(bool restores) {
        m_Kernel.m_Control.m_bRestoreWanted = restores;
        EXPECT_EQ(m_pService->PrepareToStart(), RC_OK);
        EXPECT_EQ(m_pService->Restore(0, IDENTIFIER), RC_OK);
        EXPECT_EQ(m_pService->PreStart(), RC_OK);
        EXPECT_EQ(m_Kernel.m_Control.m_Calls, std::vector<std::string>{});
        EXPECT_EQ(m_pService->WarmRestart(2, nullptr), RC_OK); // what is queued again must not come a second time
        EXPECT_FALSE(std::filesystem::exists("kvLogFile.warm"));
        EXPECT_EQ(m_pService->Start(), RC_OK);
    }
    ~Life() {
        EXPECT_EQ(m_pService->PrepareToStop(), RC_OK);
        EXPECT_EQ(m_pService->Stop(), RC_OK);
    }

    void Reports(int from, int to) {
        ILogFile* log = LoadedModule::LogFile(m_pService);
        IAction* actions = LoadedModule::Action(m_pService);
        OnThreads(THREADS, [&](int thread) {
            for (int number = from; number < to; ++number) {
                EXPECT_EQ(Report(*log, *actions, thread, number), RC_OK);
            }
        });
    }

    TestKernel m_Kernel;
    LoadedModule m_Module;
    IKernelService* m_pService = m_Module.InitService(&m_Kernel);
};

int RowCount() {
    int count = 0;
    for (const std::string& file : FILES) {
        for (const auto& [thread, numbers] : MarksIn(file)) {
            count += static_cast<int>(numbers.size());
        }
    }
    return count;
}

// Never more than 512 requests wait, so that none is dropped.
TEST(Life, EveryReportOfTwoLivesBecomesOneRowInItsThreadsOrder) {
    const Workplace workplace;
    Workplace::WriteSection({SpecItems{.m_Name = "Alarms", .m_File = "alarms.csv"},
                             SpecItems{.m_Name = "Events", .m_File = "events.csv"},
                             SpecItems{.m_Name = "Values", .m_File = "values.html", .m_nFormat = 2}});
    {
        Life life(false);
        life.Reports(0, 60);
        EXPECT_TRUE(Soon([] { return RowCount() == 60 * THREADS; })) << RowCount();
        life.m_pService->PrepareToStop();
        life.Reports(60, 120); // the events are written at once, the others wait for the next life
        EXPECT_EQ(RowCount(), 72 * THREADS);
        EXPECT_EQ(life.m_pService->WarmRestart(1, nullptr), RC_OK);
        EXPECT_EQ(RowCount(), 72 * THREADS);
    }
    {
        Life life(true);
        life.Reports(120, 136); // wakes the worker for the restored ones too
        EXPECT_TRUE(Soon([] { return RowCount() == 136 * THREADS; })) << RowCount();
    }
    std::map<int, std::vector<int>> all;
    for (const std::string& file : FILES) {
        const auto marks = MarksIn(file);
        EXPECT_EQ(marks.size(), THREADS) << file;
        EXPECT_TRUE(InOrder(marks)) << file;
        for (const auto& [thread, numbers] : marks) {
            all[thread].insert(all[thread].end(), numbers.begin(), numbers.end());
        }
    }
    for (auto& [thread, numbers] : all) {
        std::sort(numbers.begin(), numbers.end());
        EXPECT_EQ(numbers.size(), 136U) << thread;
        EXPECT_EQ(numbers.back(), 135) << thread;
        EXPECT_TRUE(InOrder({{thread, numbers}})) << thread;
    }
}

} // namespace
