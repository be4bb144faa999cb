#include "base/WARM_RESTART_STRUCT.h"
#include "tests/Reports.h"
#include "tests/Workplace.h"
#include "tests/kernel/LoadedModule.h"
#include "tests/kernel/TestKernel.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>

namespace {

constexpr int THREADS = 8;
constexpr int IDENTIFIER = 3;

void WriteSection(int maxSize) {
    Workplace::WriteSection(
        {SpecItems{.m_Name = "KernelLog", .m_Path = "", .m_File = "kernel-%i.log", .m_nMaxSize = maxSize},
         SpecItems{.m_Name = "Alarms", .m_File = "alarms-%i.csv", .m_nMaxSize = maxSize},
         SpecItems{.m_Name = "Events", .m_File = "events-%i.csv", .m_nMaxSize = maxSize, .m_nUnicode = 1},
         SpecItems{.m_Name = "Values", .m_File = "values-%i.html", .m_nMaxSize = maxSize, .m_nFormat = 2}});
}

std::map<std::string, Marks> MarksByFile() {
    std::map<std::string, Marks> marks;
    for (const std::string& path : Workplace::Tree()) {
        if (!path.ends_with('/') && !path.ends_with("warm")) {
            marks[path] = MarksIn(path);
        }
    }
    return marks;
}

// The reports of all files, sorted.
Marks AllMarks() {
    Marks all;
    for (const auto& [path, marks] : MarksByFile()) {
        for (const auto& [thread, numbers] : marks) {
            all[thread].insert(all[thread].end(), numbers.begin(), numbers.end());
            std::ranges::sort(all[thread]);
        }
    }
    return all;
}

// The module from loading to unloading.
class Life {
public:
    explicit Life(bool restores = false) {
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
    EResult Report(int thread, int number) {
        const std::wstring mark = Mark(thread, number);
        EONEVENTSTRUCT record = MakeRecord(L"N", mark.c_str());
        record.m_nIdentifier = IDENTIFIER;
        const int kind = number % 5;
        EString name = kind == 2 ? L"Values@3" : kind == 4 ? L"Events@3" : L"Alarms@3";
        EString action = kind == 3 ? L"DoLogAlarmToFile" : L"DoLogEventToFile";
        switch (kind) {
        case 0:
            return m_pLog->ReportEvent(&record);
        case 1:
            return m_pLog->LogAlarm(name, &record);
        case 2:
            record.m_Value.SetText(mark.c_str());
            return m_pLog->LogSnapShot(name, &record, 1);
        default:
            return m_pActions->Invoke(action, name, nullptr, 1, &record, nullptr);
        }
    }

    void Reports(int from, int to) {
        OnThreads(THREADS, [&](int thread) {
            for (int number = from; number < to; ++number) {
                EXPECT_EQ(Report(thread, number), RC_OK);
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
    WriteSection(1000000);
    {
        Life life;
        life.Reports(0, 60);
        EXPECT_TRUE(Soon([] { return AllMarks() == FromThreads(THREADS, 60); }));
        life.m_pService->PrepareToStop();
        life.Reports(60, 120); // the events are written at once, the others wait for the next life
        EXPECT_EQ(life.m_pService->WarmRestart(1, nullptr), RC_OK);
        EXPECT_EQ(AllMarks().at(0).size(), 72U);
    }
    {
        Life life(true);
        EXPECT_FALSE(std::filesystem::exists("kvLogFile.warm"));
        life.Reports(120, 136); // wakes the worker for the restored ones too
        EXPECT_TRUE(Soon([] { return AllMarks() == FromThreads(THREADS, 136); })) << testing::PrintToString(AllMarks());
    }
    for (const auto& [path, marks] : MarksByFile()) {
        EXPECT_TRUE(InOrder(marks)) << path;
    }
}

// Small files, so that names change all the time.
TEST(Life, ReportsStartsStopsSavesAndQueriesAtOnce) {
    const Workplace workplace;
    WriteSection(5000);
    {
        Life life;
        std::atomic<bool> stop = false;
        const auto query = [&] {
            EString name;
            int format = 0;
            EXPECT_EQ(life.m_pLog->GetAgentLogFile(name, format), RC_OK);
            EXPECT_TRUE(name.IsEmpty() || (Narrow(name).starts_with("kernel-") && name.GetLength() == 12));
        };
        std::thread others([&] {
            OnThreads(THREADS / 2 + 1, [&](int thread) {
                for (int number = 0; !stop; ++number) {
                    thread > 0 ? (void)life.Report(thread, number) : query();
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
    EXPECT_FALSE(AllMarks().empty()); // the rows of some threads may have been rotated away
    for (auto& [path, marks] : MarksByFile()) {
        // An event that waits while the worker rests is overtaken by the next one.
        EXPECT_TRUE(path.starts_with("kernel") || InOrder(marks)) << path;
        EXPECT_LE(std::filesystem::file_size(path), 5100U) << path; // a page's end may stand behind the limit
    }
    for (auto& [thread, numbers] : AllMarks()) {
        EXPECT_EQ(std::ranges::adjacent_find(numbers), numbers.end()) << "twice, from thread " << thread;
    }
}

} // namespace
