#include "base/EFileIO.h"
#include "base/InterfaceIds.h"
#include "base/WARM_RESTART_STRUCT.h"
#include "tests/ServiceFixture.h"

#include <atomic>
#include <sys/stat.h>

namespace {

constexpr int THREADS = 8;

std::ptrdiff_t Workers() {
    return std::count_if(std::filesystem::directory_iterator("/proc/self/task"), {},
                         [](const auto& task) { return ReadWhole(task.path() / "comm") == "LogFileThrd\n"; });
}

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

class Lifecycle : public ServiceTest {
protected:
    // Another life of the service, with a log file for each kind of report, so large that no row is rotated away.
    void Begin() {
        SpecItems items{.m_Path = "", .m_nMaxSize = 40000, .m_nFiles = 9};
        Texts specs;
        for (const auto& [name, format, unicode] :
             {std::tuple{"KernelLog", 0, 0}, {"Alarms", 1, 0}, {"Events", 1, 1}, {"Values", 2, 0}}) {
            items.m_Name = name;
            items.m_File = items.m_Name + "-%i";
            items.m_nFormat = format;
            items.m_nUnicode = unicode;
            specs.push_back(items);
        }
        EXPECT_EQ(StartAnew(specs, 3), RC_OK);
        EXPECT_EQ(m_pService->PreStart(), RC_OK);
        EXPECT_EQ(m_pService->WarmRestart(2, nullptr), RC_OK); // what is queued again must not come a second time
        EXPECT_EQ(m_pService->Start(), RC_OK);
    }

    // So many reports, the kinds by turns. Never more than 512 requests wait, so that none is dropped.
    void Reports(int thread, int from, int count) {
        for (int number = from; number < from + count; ++number) {
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
    }
    void AskForTheKernelLog() {
        EString name;
        int format = 0;
        EXPECT_EQ(m_pService->GetAgentLogFile(name, format), RC_OK);
        EXPECT_TRUE(name.IsEmpty() || (Narrow(name).starts_with("KernelLog-") && name.GetLength() == 11));
    }
    void SaveStopAndStart() {
        WARM_RESTART_STRUCT info;
        EXPECT_EQ(m_pService->WarmRestart(1, nullptr), RC_OK);
        EXPECT_EQ(m_pService->WarmRestart(3, &info), RC_OK);
        delete[] info.m_pszSections;
        EXPECT_EQ(m_pService->PrepareToStop(), RC_OK);
        EXPECT_EQ(m_pService->Start(), RC_OK);
    }
};

TEST_F(Lifecycle, PreparationNeedsThreeInterfacesAndTheLastRegistration) {
    const EResult refusal = 0xC0010022;
    const struct {
        std::set<unsigned long> m_Missing;
        const char* m_pszRefused; // registration
        EResult m_Result;
        bool m_bRegisters;
    } cases[] = {{{IID_KERNEL_CONTROL}, "", RC_MISSING, false},
                 {{IID_ERROR_REPORTER}, "", RC_MISSING, false},
                 {{IID_STRING_TABLE}, "", RC_MISSING, true},
                 {{}, "DoRestartLogFile", refusal, true},
                 {{}, "DoLogDelivery", RC_OK, true},
                 {{IID_ACTION_REGISTRY, IID_UPLOAD_SERVICE, IID_EMAIL_SERVICE}, "", RC_OK, false}};
    auto& registered = m_Kernel.m_Actions.m_Registered;
    for (const auto& [missing, refused, result, registers] : cases) {
        SCOPED_TRACE(testing::PrintToString(missing) + refused);
        EPersistent::RemoveFactories();
        m_Kernel.m_Missing = missing;
        m_Kernel.m_Actions.m_Refused = {{refused, refusal}};
        StartAnew({SpecItems{}});
        EXPECT_EQ(Spec() != nullptr, result == RC_OK); // made only once the factory is known
        registered.clear();
        EXPECT_EQ(m_pService->PrepareToStart(), result); // the second attempt, or nothing any more
        EXPECT_EQ(registered.size(), registers && result != RC_OK ? 5U : 0U);
        m_Kernel.m_Missing.clear();
        m_Kernel.m_Actions.m_Refused.clear();
        EXPECT_EQ(m_pService->PrepareToStart(), RC_OK);
    }
}

TEST_F(Lifecycle, EachOperationHasItsStateAndOnlyAStartedServiceAWorker) {
    for (const auto& [operation, state] : {std::pair{&ELogFile::PrepareToStop, CKernelService::STATE_CREATED},
                                           {&ELogFile::PrepareToStart, CKernelService::STATE_PREPARED},
                                           {&ELogFile::PrepareToStop, CKernelService::STATE_PREPARED},
                                           {&ELogFile::PreStart, CKernelService::STATE_PRE_STARTED},
                                           {&ELogFile::PrepareToStart, CKernelService::STATE_PRE_STARTED},
                                           {&ELogFile::Start, CKernelService::STATE_STARTED},
                                           {&ELogFile::Start, CKernelService::STATE_STARTED},
                                           {&ELogFile::PreStart, CKernelService::STATE_STARTED},
                                           {&ELogFile::PrepareToStop, CKernelService::STATE_STOPPED},
                                           {&ELogFile::Start, CKernelService::STATE_STARTED},
                                           {&ELogFile::PrepareToStop, CKernelService::STATE_STOPPED}}) {
        EXPECT_EQ((m_pService->*operation)(), RC_OK);
        EXPECT_EQ(m_pService->m_State, state);
        EXPECT_TRUE(Eventually([&] { return Workers() == (state == CKernelService::STATE_STARTED ? 1 : 0); }));
    }
}

TEST_F(Lifecycle, AStopFinishesTheRequestInHandAndTheEndNoMore) {
    Configure({SpecItems{}, SpecItems{.m_Name = "Pipe", .m_File = "pipe"}});
    ASSERT_EQ(mkfifo("logs/pipe", 0600), 0);
    Event(L"early");
    m_pService->Start();
    Alarm(L"held", L"Pipe");
    EXPECT_TRUE(Eventually([&] { return Queued().empty(); }));
    for (const int number : UpTo(3)) {
        Alarm(Mark(0, number).c_str());
    }
    std::thread stopper([&] { m_pService->PrepareToStop(); });
    EXPECT_TRUE(Eventually([&] { return !m_pService->m_bRunning; }));
    EXPECT_EQ(m_pService->m_State, 7U);                            // it waits
    const EFileIO reader(L"logs/pipe", EFileIO::OPEN_FOR_READING); // who writes to the pipe goes on
    stopper.join();
    EXPECT_EQ(Queued(), (Texts{"r0#0;", "r0#1;", "r0#2;"}));
    WriteAll();
    Alarm(L"waits, and is never written");
    std::filesystem::remove("logs/pipe");
    const Files written = Found();
    End();
    EXPECT_EQ(Found(), written);
    EXPECT_EQ(MarksIn("logs/log-0.csv"), (Marks{{0, UpTo(3)}}));
}

// The worker must not write while a reporting thread does.
TEST_F(Lifecycle, AStartWaitsForTheEventInHand) {
    Configure({SpecItems{.m_Name = "KernelLog", .m_Path = "", .m_File = "pipe"}});
    ASSERT_EQ(mkfifo("pipe", 0600), 0);
    std::thread reporter([&] { Event(L"T"); });
    EString name;
    int format = 0;
    EXPECT_TRUE(Eventually([&] { return m_pService->GetAgentLogFile(name, format) == RC_OK && !name.IsEmpty(); }));
    std::thread starter([&] { m_pService->Start(); });
    EXPECT_TRUE(Eventually([&] { return m_pService->m_bRunning.load(); })); // it takes the lock next
    EXPECT_EQ(m_pService->m_State, 1U);
    EXPECT_EQ(Workers(), 0);
    const EFileIO reader(L"pipe", EFileIO::OPEN_FOR_READING); // who writes to the pipe goes on
    reporter.join();
    starter.join();
    EXPECT_EQ(m_pService->m_State, 7U);
}

TEST_F(Lifecycle, EveryReportOfTwoLivesBecomesOneRowWhateverHappensMeanwhile) {
    constexpr int ROUNDS = 20;
    Begin();
    for (int round = 0; round < ROUNDS; ++round) {
        OnThreads(THREADS + 2, [&](int thread) {
            if (thread < THREADS) {
                Reports(thread, round * 60, 59);
                return;
            }
            for (int i = 0; i < 10; ++i) {
                thread == THREADS ? AskForTheKernelLog() : SaveStopAndStart();
            }
        });
        for (int thread = 0; thread < THREADS; ++thread) {
            Reports(thread, round * 60 + 59, 1); // wakes the worker for what a stop has left
        }
        ASSERT_TRUE(Eventually([&] { return Queued().empty(); }));
    }
    m_pService->PrepareToStop();
    EXPECT_EQ(AllMarks("KernelLog"), FromThreads(THREADS, 60 * ROUNDS)); // waiting events are overtaken in a stop
    OnThreads(THREADS, [&](int thread) { Reports(thread, 60 * ROUNDS, 60); });
    EXPECT_EQ(m_pService->WarmRestart(1, nullptr), RC_OK);
    EXPECT_EQ(AllMarks().at(0).size(), 60U * ROUNDS + 15) << "events are written at once, the others wait";
    m_Kernel.m_Control.m_bRestoreWanted = true;
    Begin();
    EXPECT_FALSE(std::filesystem::exists("kvLogFile.warm"));
    OnThreads(THREADS, [&](int thread) { Reports(thread, 60 * ROUNDS + 60, 16); }); // wakes the worker for all
    ASSERT_TRUE(Eventually([&] { return Queued().empty(); }));
    End();
    EXPECT_EQ(AllMarks("KernelLog"), FromThreads(THREADS, 60 * ROUNDS + 76));
    EXPECT_EQ(m_Kernel.m_Control.m_Calls, Texts{});
    for (const auto& [path, bytes] : Found()) {
        EXPECT_LE(bytes.size(), 40100U) << path; // a page's end may stand behind the limit
    }
}

} // namespace
