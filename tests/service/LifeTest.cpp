#include "base/WARM_RESTART_STRUCT.h"
#include "tests/ServiceFixture.h"

#include <atomic>

namespace {

constexpr int THREADS = 8;

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

class Life : public ServiceTest {
protected:
    // Another life of the service, with files of this size.
    void Begin(int maxSize) {
        const auto spec = [maxSize](const char* name, int format, int unicode) {
            return SpecItems{.m_Name = name,
                             .m_Path = "",
                             .m_File = std::string(name) + "-%i",
                             .m_nMaxSize = maxSize,
                             .m_nFormat = format,
                             .m_nUnicode = unicode};
        };
        EXPECT_EQ(
            StartAnew({spec("KernelLog", 0, 0), spec("Alarms", 1, 0), spec("Events", 1, 1), spec("Values", 2, 0)}, 3),
            RC_OK);
        EXPECT_EQ(m_pService->PreStart(), RC_OK);
        EXPECT_EQ(m_pService->WarmRestart(2, nullptr), RC_OK); // what is queued again must not come a second time
        EXPECT_EQ(m_pService->Start(), RC_OK);
    }

    // The kinds of reports by turns.
    void Report(int thread, int number) {
        const std::wstring mark = Mark(thread, number);
        EONEVENTSTRUCT record = MakeRecord(L"N", mark.c_str());
        record.m_nIdentifier = 3;
        const int kind = number % 4;
        record.m_Value.SetText(kind == 1 ? mark.c_str() : L""); // where the row has no text
        EXPECT_EQ(kind == 0   ? m_pService->ReportEvent(&record)
                  : kind == 1 ? Invoke(ACTION_NAME_SNAPSHOT, L"Values@3", &record)
                  : kind == 2 ? Invoke(ACTION_NAME_ALARM, L"Alarms@3", &record)
                              : Invoke(ACTION_NAME_EVENT, L"Events@3", &record),
                  RC_OK);
    }
    void Reports(int from, int to) {
        OnThreads(THREADS, [&](int thread) {
            for (int number = from; number < to; ++number) {
                Report(thread, number);
            }
        });
    }
};

// Never more than 512 requests wait, so that none is dropped.
TEST_F(Life, EveryReportOfTwoLivesBecomesOneRowInItsThreadsOrder) {
    Begin(1000000);
    Reports(0, 60);
    EXPECT_TRUE(Eventually([] { return AllMarks() == FromThreads(THREADS, 60); }));
    m_pService->PrepareToStop();
    Reports(60, 120); // the events are written at once, the others wait for the next life
    EXPECT_EQ(m_pService->WarmRestart(1, nullptr), RC_OK);
    EXPECT_EQ(AllMarks().at(0).size(), 75U);
    m_Kernel.m_Control.m_bRestoreWanted = true;
    Begin(1000000);
    EXPECT_FALSE(std::filesystem::exists("kvLogFile.warm"));
    Reports(120, 136); // wakes the worker for the restored ones too
    EXPECT_TRUE(Eventually([] { return AllMarks() == FromThreads(THREADS, 136); }));
    EXPECT_EQ(AllMarks("nothing"), FromThreads(THREADS, 136));
    EXPECT_EQ(m_Kernel.m_Control.m_Calls, Texts{});
}

// Small files, so that names change all the time.
TEST_F(Life, ReportsStartsStopsSavesAndQueriesAtOnce) {
    Begin(5000);
    std::atomic<bool> stop = false;
    std::thread others([&] {
        OnThreads(THREADS / 2 + 1, [&](int thread) {
            for (int number = 0; !stop; ++number) {
                if (thread > 0) {
                    Report(thread, number);
                    continue;
                }
                EString name;
                int format = 0;
                EXPECT_EQ(m_pService->GetAgentLogFile(name, format), RC_OK);
                EXPECT_TRUE(name.IsEmpty() || (Narrow(name).starts_with("KernelLog-") && name.GetLength() == 11));
            }
        });
    });
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(1500);
    while (std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(std::chrono::milliseconds(3));
        WARM_RESTART_STRUCT info;
        EXPECT_EQ(m_pService->WarmRestart(1, nullptr), RC_OK);
        EXPECT_EQ(m_pService->WarmRestart(3, &info), RC_OK);
        delete[] info.m_pszSections;
        EXPECT_EQ(m_pService->PrepareToStop(), RC_OK);
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        EXPECT_EQ(m_pService->Start(), RC_OK);
    }
    stop = true;
    others.join();
    End();
    // An event that waits while the worker rests is overtaken by the next one.
    const Marks all = AllMarks("KernelLog");
    EXPECT_FALSE(all.empty()); // the rows of some threads may have been rotated away
    for (const auto& [thread, numbers] : all) {
        EXPECT_EQ(std::ranges::adjacent_find(numbers), numbers.end()) << "twice, from thread " << thread;
    }
    for (const auto& [path, bytes] : Found()) {
        EXPECT_TRUE(path.ends_with("warm") || bytes.size() <= 5100U) << path; // a page's end may stand behind the limit
    }
}

} // namespace
