#include "base/EFileIO.h"
#include "tests/ServiceFixture.h"

#include <sys/stat.h>

namespace {

constexpr int THREADS = 8;

std::ptrdiff_t Workers() {
    return std::count_if(std::filesystem::directory_iterator("/proc/self/task"), {},
                         [](const auto& task) { return ReadWhole(task.path() / "comm") == "LogFileThrd\n"; });
}

// A log file for each kind of report, so large that no row is rotated away.
struct Kind : SpecItems {
    const wchar_t* m_pszAction = nullptr;
};
constexpr int SIZE = 40'000;
const std::vector<Kind> KINDS{
    {{.m_Name = "KernelLog", .m_Path = "", .m_File = "events-%i", .m_nMaxSize = SIZE, .m_nFiles = 9, .m_nFormat = 0}},
    {{.m_Name = "Values", .m_File = "%i", .m_nMaxSize = SIZE, .m_nFiles = 9, .m_nFormat = 2}, ACTION_NAME_SNAPSHOT},
    {{.m_Name = "Alarms", .m_File = "alarms-%i", .m_nMaxSize = SIZE, .m_nFiles = 9}, ACTION_NAME_ALARM},
    {{.m_Name = "Events", .m_File = "%i.log", .m_nMaxSize = SIZE, .m_nFiles = 9, .m_nUnicode = 1}, ACTION_NAME_EVENT}};

class Lifecycle : public ServiceTest {
protected:
    void Begin() {
        EXPECT_EQ(StartAnew({KINDS.begin(), KINDS.end()}, 3), RC_OK);
        EXPECT_EQ(m_pService->PreStart(), RC_OK);
        EXPECT_EQ(m_pService->WarmRestart(2, nullptr), RC_OK); // what is queued again must not come a second time
        EXPECT_EQ(m_pService->Start(), RC_OK);
    }

    // So many reports, the kinds by turns. Never more than 512 requests wait, so that none is dropped.
    void Reports(int thread, int from, int count) {
        for (int number = from; number < from + count; ++number) {
            const Kind& kind = KINDS[static_cast<std::size_t>(number % 4)];
            const std::wstring mark = Mark(thread, number);
            EONEVENTSTRUCT record = MakeRecord(L"N", mark.c_str());
            record.m_nIdentifier = 3;
            record.m_Value.SetText(kind.m_Name == "Values" ? mark.c_str() : L""); // where the row has no text
            EXPECT_EQ(number % 4 == 0 ? m_pService->ReportEvent(&record)
                                      : Invoke(kind.m_pszAction, Wide(kind.m_Name + "@3"), &record),
                      RC_OK);
        }
    }

    // The reports of all files by thread, sorted. Those of every thread are in order in each file whose path begins otherwise.
    static std::vector<std::vector<int>> AllMarks(const char* unordered = "") {
        std::vector<std::vector<int>> all(THREADS);
        for (const auto& [path, bytes] : Found()) {
            for (const auto& [thread, numbers] : path != "kvLogFile.warm" ? MarksIn(path) : Marks()) {
                EXPECT_TRUE(path.starts_with(unordered) || std::ranges::is_sorted(numbers, std::ranges::less_equal{}))
                    << "twice or overtaken, from thread " << thread << " in " << path;
                auto& found = all.at(static_cast<std::size_t>(thread));
                found.insert(found.end(), numbers.begin(), numbers.end());
                std::ranges::sort(found);
            }
        }
        return all;
    }
};

TEST_F(Lifecycle, PreparationNeedsThreeInterfacesAndTheLastRegistration) {
    const EResult refusal = 0xC0010022;
    // What the kernel does not have, the registration that it refuses, and what becomes of the preparation.
    const std::tuple<std::set<unsigned long>, const char*, EResult> cases[] = {
        {{IID_KERNEL_CONTROL}, "", RC_MISSING},
        {{IID_ERROR_REPORTER}, "", RC_MISSING},
        {{IID_STRING_TABLE}, "", RC_MISSING},
        {{}, "DoRestartLogFile", refusal},
        {{}, "DoLogDelivery", RC_OK},
        {{IID_ACTION_REGISTRY, IID_UPLOAD_SERVICE, IID_EMAIL_SERVICE}, "", RC_OK}};
    for (const auto& [missing, refused, result] : cases) {
        SCOPED_TRACE(testing::PrintToString(missing) + refused);
        EPersistent::RemoveFactories();
        m_Kernel.m_Missing = missing;
        m_Kernel.m_Actions.m_Refused = {{refused, refusal}};
        StartAnew({SpecItems{}});
        EXPECT_EQ(Spec() != nullptr, result == RC_OK); // made only once the factory is known
        EXPECT_EQ(m_pService->PrepareToStart(), result);
        m_Kernel.m_Missing.clear();
        m_Kernel.m_Actions.m_Refused.clear();
        EXPECT_EQ(m_pService->PrepareToStart(), RC_OK);
        void* itself = nullptr;
        EXPECT_EQ(m_pService->CKernelService::GetInterface(IID_KERNEL_SERVICE, &itself), RC_OK);
        EXPECT_EQ(itself, static_cast<IKernelService*>(m_pService));
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
                                           {&ELogFile::PrepareToStop, CKernelService::STATE_STOPPED}}) {
        EXPECT_EQ((m_pService->*operation)(), RC_OK);
        EXPECT_EQ(m_pService->m_State, state);
        EXPECT_TRUE(
            Eventually([&, state = state] { return Workers() == (state == CKernelService::STATE_STARTED ? 1 : 0); }));
    }
    Event(L"of a service that nobody configured");
    EXPECT_TRUE(Found().contains("Kavro.log"));
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
}

TEST_F(Lifecycle, EveryReportOfTwoLivesBecomesOneRowWhateverHappensMeanwhile) {
    constexpr int ROUNDS = 20;
    Begin();
    for (int round = 0; round < ROUNDS; ++round) {
        OnThreads(THREADS + 1, [&](int thread) {
            if (thread < THREADS) {
                Reports(thread, round * 60, 59);
                return;
            }
            for (int i = 0; i < 10; ++i) {
                EString name;
                int format = 0;
                EXPECT_EQ(m_pService->GetAgentLogFile(name, format), RC_OK);
                EXPECT_TRUE(name.IsEmpty() || (Narrow(name).starts_with("events-") && name.GetLength() == 8));
                EXPECT_EQ(m_pService->WarmRestart(1, nullptr), RC_OK);
                EXPECT_EQ(m_pService->PrepareToStop(), RC_OK);
                EXPECT_EQ(m_pService->Start(), RC_OK);
            }
        });
        for (int thread = 0; thread < THREADS; ++thread) {
            Reports(thread, round * 60 + 59, 1); // wakes the worker for what a stop has left
        }
        ASSERT_TRUE(Eventually([&] { return Queued().empty(); }));
    }
    m_pService->PrepareToStop();
    EXPECT_EQ(AllMarks("events"), std::vector(THREADS, UpTo(60 * ROUNDS))); // waiting events are overtaken in a stop
    OnThreads(THREADS, [&](int thread) { Reports(thread, 60 * ROUNDS, 60); });
    EXPECT_EQ(m_pService->WarmRestart(1, nullptr), RC_OK);
    EXPECT_EQ(AllMarks().at(0).size(), 60U * ROUNDS + 15) << "events are written at once, the others wait";
    m_Kernel.m_Control.m_bRestoreWanted = true;
    Begin();
    OnThreads(THREADS, [&](int thread) { Reports(thread, 60 * ROUNDS + 60, 16); }); // wakes the worker for all
    ASSERT_TRUE(Eventually([&] { return Queued().empty(); }));
    End();
    EXPECT_EQ(AllMarks("events"), std::vector(THREADS, UpTo(60 * ROUNDS + 76)));
}

} // namespace
