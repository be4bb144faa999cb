#include "base/WARM_RESTART_STRUCT.h"
#include "tests/Reports.h"
#include "tests/Workplace.h"
#include "tests/kernel/LoadedModule.h"
#include "tests/kernel/TestKernel.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>

namespace {

constexpr int REPORTERS = 4;

void Report(ILogFile& log, IAction& actions, int thread, int number) {
    const std::wstring mark = Mark(thread, number);
    EONEVENTSTRUCT record = MakeRecord(L"N", mark.c_str());
    EString name = L"Log";
    EString restart = L"DoRestartLogFile";
    switch (number % 16) {
    case 0:
        actions.Invoke(restart, name, nullptr, 1, &record, nullptr);
        break;
    case 1:
    case 2:
    case 3:
        log.ReportEvent(&record);
        break;
    default:
        log.LogAlarm(name, &record);
    }
}

// What the kernel does to a service, as fast as it goes.
void StartSaveAndStop(IKernelService& service, std::chrono::milliseconds duration) {
    const auto end = std::chrono::steady_clock::now() + duration;
    while (std::chrono::steady_clock::now() < end) {
        EXPECT_EQ(service.Start(), RC_OK);
        std::this_thread::sleep_for(std::chrono::milliseconds(3));
        WARM_RESTART_STRUCT info;
        EXPECT_EQ(service.WarmRestart(1, nullptr), RC_OK);
        EXPECT_EQ(service.WarmRestart(3, &info), RC_OK);
        const std::unique_ptr<wchar_t[]> sections(info.m_pszSections);
        EXPECT_EQ(service.PrepareToStop(), RC_OK);
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

TEST(Stress, ReportsStartsStopsSavesAndQueriesAtOnce) {
    const Workplace workplace;
    Workplace::WriteSection(
        {SpecItems{.m_nMaxSize = 20000, .m_nFiles = 50},
         SpecItems{
             .m_Name = "KernelLog", .m_Path = "", .m_File = "kernel-%i.log", .m_nMaxSize = 20000, .m_nFiles = 3}});
    TestKernel kernel;
    LoadedModule module;
    IKernelService* service = module.InitService(&kernel);
    ASSERT_EQ(service->PrepareToStart(), RC_OK);
    ASSERT_EQ(service->Restore(0), RC_OK);
    std::atomic<bool> stop = false;
    std::thread threads([&] {
        OnThreads(REPORTERS + 1, [&](int thread) {
            ILogFile* log = LoadedModule::LogFile(service);
            IAction* actions = LoadedModule::Action(service);
            EString name;
            int format = 0;
            for (int number = 0; !stop; ++number) {
                if (thread < REPORTERS) {
                    Report(*log, *actions, thread, number);
                    continue;
                }
                EXPECT_EQ(log->GetAgentLogFile(name, format), RC_OK);
                const std::string seen = Narrow(name);
                EXPECT_TRUE(seen.empty() || (seen.rfind("kernel-", 0) == 0 && seen.size() == 12)) << seen;
            }
        });
    });
    StartSaveAndStop(*service, std::chrono::milliseconds(1500));
    stop = true;
    threads.join();
    EXPECT_EQ(service->Stop(), RC_OK);
    std::size_t rows = 0;
    for (const std::string& path : Workplace::Tree()) {
        if (path.ends_with(".csv") || path.ends_with(".log")) {
            auto marks = MarksIn(path);
            if (path.ends_with(".log")) { // an event that waits while the service stops is overtaken by the next one
                for (auto& [thread, numbers] : marks) {
                    std::sort(numbers.begin(), numbers.end());
                }
            }
            EXPECT_TRUE(InOrder(marks)) << path;
            rows += marks.size();
            EXPECT_LE(std::filesystem::file_size(path), 20000U) << path;
        }
    }
    EXPECT_GT(rows, 0U);
}

} // namespace
