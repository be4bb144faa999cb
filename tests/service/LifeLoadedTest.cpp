#include "base/WARM_RESTART_STRUCT.h"
#include "tests/Reports.h"
#include "tests/Workplace.h"
#include "tests/kernel/LoadedModule.h"
#include "tests/kernel/TestKernel.h"

#include <gtest/gtest.h>

#include <atomic>

namespace {

constexpr int THREADS = 8;
constexpr int IDENTIFIER = 3;

// The reports of all files, sorted. Those of every thread are in order in each file whose path begins otherwise.
Marks AllMarks(const char* unordered = "") {
    Marks all;
    for (const std::string& path : Workplace::Tree()) {
        if (path.ends_with('/') || path.ends_with("warm")) {
            continue;
        }
        for (const auto& [thread, numbers] : MarksIn(path)) {
            EXPECT_TRUE(path.starts_with(unordered) || std::ranges::is_sorted(numbers, std::ranges::less_equal{}))
                << "twice or overtaken, from thread " << thread << " in " << path;
            all[thread].insert(all[thread].end(), numbers.begin(), numbers.end());
            std::ranges::sort(all[thread]);
        }
    }
    return all;
}

// The module from loading to unloading, with files of that size.
class Life {
public:
    explicit Life(int maxSize, bool restores = false) {
        Workplace::WriteSection(
            {SpecItems{.m_Name = "KernelLog", .m_Path = "", .m_File = "kernel-%i.log", .m_nMaxSize = maxSize},
             SpecItems{.m_Name = "Alarms", .m_File = "alarms-%i.csv", .m_nMaxSize = maxSize},
             SpecItems{.m_Name = "Events", .m_File = "events-%i.csv", .m_nMaxSize = maxSize, .m_nUnicode = 1},
             SpecItems{.m_Name = "Values", .m_File = "values-%i.html", .m_nMaxSize = maxSize, .m_nFormat = 2}});
        m_Kernel.m_Control.m_bRestoreWanted = restores;
        EXPECT_EQ(m_pService->PrepareToStart(), RC_OK);
        EXPECT_EQ(m_pService->Restore(0, IDENTIFIER), RC_OK);
        EXPECT_EQ(m_pService->PreStart(), RC_OK);
        EXPECT_EQ(m_Kernel.m_Control.m_Calls, std::vector<std::string>{});
        EXPECT_EQ(m_pService->WarmRestart(2, nullptr), RC_OK); // what is queued again must not come a second time
        EXPECT_EQ(m_pService->Start(), RC_OK);
    }
    ~Life() {
        EXPECT_EQ(m_pService->PrepareToStop(), RC_OK);
        EXPECT_EQ(m_pService->Stop(), RC_OK);
    }

    // The kinds of reports by turns.
    void Report(int thread, int number) {
        const std::wstring mark = Mark(thread, number);
        EONEVENTSTRUCT record = MakeRecord(L"N", mark.c_str());
        record.m_nIdentifier = IDENTIFIER;
        record.m_Value.SetText(number % 5 == 2 ? mark.c_str() : L""); // where the row has no text
        EString alarms = L"Alarms@3";
        EString events = L"Events@3";
        EString values = L"Values@3";
        EString alarm = L"DoLogAlarmToFile";
        EString event = L"DoLogEventToFile";
        const EResult result = number % 5 == 0   ? m_pLog->ReportEvent(&record)
                               : number % 5 == 1 ? m_pLog->LogAlarm(alarms, &record)
                               : number % 5 == 2 ? m_pLog->LogSnapShot(values, &record, 1)
                               : number % 5 == 3 ? m_pActions->Invoke(alarm, alarms, nullptr, 1, &record, nullptr)
                                                 : m_pActions->Invoke(event, events, nullptr, 1, &record, nullptr);
        EXPECT_EQ(result, RC_OK);
    }
    void Reports(int from, int to) {
        OnThreads(THREADS, [&](int thread) {
            for (int number = from; number < to; ++number) {
                Report(thread, number);
            }
        });
    }

    TestKernel m_Kernel;
    LoadedModule m_Module;
    IKernelService* m_pService = m_Module.InitService(&m_Kernel);
    ILogFile* m_pLog = LoadedModule::LogFile(m_pService);
    IAction* m_pActions = LoadedModule::Action(m_pService);
};

// Never more than 512 requests wait, so that none is dropped.
TEST(Life, EveryReportOfTwoLivesBecomesOneRowInItsThreadsOrder) {
    const Workplace workplace;
    const auto written = [](int count) { return AllMarks() == FromThreads(THREADS, count); };
    {
        Life life(1000000);
        life.Reports(0, 60);
        EXPECT_TRUE(Soon([&] { return written(60); }));
        life.m_pService->PrepareToStop();
        life.Reports(60, 120); // the events are written at once, the others wait for the next life
        EXPECT_EQ(life.m_pService->WarmRestart(1, nullptr), RC_OK);
        EXPECT_EQ(AllMarks().at(0).size(), 72U);
    }
    Life life(1000000, true);
    EXPECT_FALSE(std::filesystem::exists("kvLogFile.warm"));
    life.Reports(120, 136); // wakes the worker for the restored ones too
    EXPECT_TRUE(Soon([&] { return written(136); }));
    EXPECT_EQ(AllMarks("nothing"), FromThreads(THREADS, 136));
}

// Small files, so that names change all the time.
TEST(Life, ReportsStartsStopsSavesAndQueriesAtOnce) {
    const Workplace workplace;
    {
        Life life(5000);
        std::atomic<bool> stop = false;
        std::thread others([&] {
            OnThreads(THREADS / 2 + 1, [&](int thread) {
                for (int number = 0; !stop; ++number) {
                    if (thread > 0) {
                        life.Report(thread, number);
                        continue;
                    }
                    EString name;
                    int format = 0;
                    EXPECT_EQ(life.m_pLog->GetAgentLogFile(name, format), RC_OK);
                    EXPECT_TRUE(name.IsEmpty() || (Narrow(name).starts_with("kernel-") && name.GetLength() == 12));
                }
            });
        });
        const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(1500);
        while (std::chrono::steady_clock::now() < end) {
            std::this_thread::sleep_for(std::chrono::milliseconds(3));
            WARM_RESTART_STRUCT info;
            EXPECT_EQ(life.m_pService->WarmRestart(1, nullptr), RC_OK);
            EXPECT_EQ(life.m_pService->WarmRestart(3, &info), RC_OK);
            delete[] info.m_pszSections;
            EXPECT_EQ(life.m_pService->PrepareToStop(), RC_OK);
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
            EXPECT_EQ(life.m_pService->Start(), RC_OK);
        }
        stop = true;
        others.join();
    }
    // An event that waits while the worker rests is overtaken by the next one.
    const Marks all = AllMarks("kernel");
    EXPECT_FALSE(all.empty()); // the rows of some threads may have been rotated away
    for (const auto& [thread, numbers] : all) {
        EXPECT_EQ(std::ranges::adjacent_find(numbers), numbers.end()) << "twice, from thread " << thread;
    }
    for (const std::string& path : Workplace::Tree()) {
        EXPECT_TRUE(path.ends_with('/') || path.ends_with("warm") || std::filesystem::file_size(path) <= 5100U)
            << path; // a page's end may stand behind the limit
    }
}

} // namespace
