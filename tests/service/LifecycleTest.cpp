#include "base/EFileIO.h"
#include "base/InterfaceIds.h"
#include "tests/ServiceFixture.h"

#include <sys/stat.h>

namespace {

using Lifecycle = ServiceTest;

std::ptrdiff_t Workers() {
    return std::count_if(std::filesystem::directory_iterator("/proc/self/task"), {},
                         [](const auto& task) { return ReadWhole(task.path() / "comm") == "LogFileThrd\n"; });
}

TEST_F(Lifecycle, PreparationNeedsThreeInterfacesAndTheLastRegistration) {
    const EResult refusal = 0xC0010022;
    // What is missing, the registration that is refused, the result, and whether anything is registered.
    const std::tuple<std::set<unsigned long>, const char*, EResult, bool> cases[] = {
        {{IID_KERNEL_CONTROL}, "", RC_MISSING, false},
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

TEST_F(Lifecycle, EveryOperationInEveryState) {
    const std::map<char, EResult (ELogFile::*)()> operations{{'p', &ELogFile::PrepareToStart},
                                                             {'r', &ELogFile::PreStart},
                                                             {'s', &ELogFile::Start},
                                                             {'e', &ELogFile::PrepareToStop}};
    std::string states = "0";
    for (const char letter : std::string("pperpessreese")) {
        EXPECT_EQ((m_pService->*operations.at(letter))(), RC_OK);
        states += std::to_string(m_pService->m_State);
        EXPECT_TRUE(Eventually([&] { return Workers() == (states.back() == '7' ? 1 : 0); })) << states;
    }
    EXPECT_EQ(states, "01113337778878");
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
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(m_pService->m_State, 1U);
    EXPECT_EQ(Workers(), 0);
    const EFileIO reader(L"pipe", EFileIO::OPEN_FOR_READING); // who writes to the pipe goes on
    reporter.join();
    starter.join();
    EXPECT_EQ(m_pService->m_State, 7U);
}

} // namespace
