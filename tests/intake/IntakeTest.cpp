#include "tests/AllocationCount.h"
#include "tests/Reports.h"
#include "tests/ServiceFixture.h"

namespace {

using Texts = std::vector<std::string>;

const std::vector<std::string> SPECS{SpecItems{.m_nFormat = 0},
                                     SpecItems{.m_Name = "Up", .m_File = "up.csv", .m_nDelivery = 2},
                                     SpecItems{.m_Name = "Mail", .m_File = "mail.csv", .m_nDelivery = 3}};

class Intake : public ServiceTest {
protected:
    EResult Event(const wchar_t* text) {
        EONEVENTSTRUCT record = MakeRecord(L"N", text);
        return m_pService->ReportEvent(&record);
    }
    EResult Alarm(EString name, const wchar_t* text) {
        EONEVENTSTRUCT record = MakeRecord(L"N", text);
        return m_pService->LogAlarm(name, &record);
    }
    EResult Invoke(EString action, EString name, unsigned long count, EONEVENTSTRUCT* records) {
        return m_pService->Invoke(action, name, nullptr, count, records, nullptr);
    }
    // Lets the worker write what waits.
    void WriteAll() {
        m_pService->Start();
        EXPECT_TRUE(Soon([&] { return Queued().empty(); }));
        m_pService->PrepareToStop();
    }
};

TEST_F(Intake, EachCallIsRefusedForItsFirstFault) {
    Configure(SPECS);
    m_Kernel.m_Missing.clear();
    EONEVENTSTRUCT records[2] = {MakeRecord(L"N", L"a"), MakeRecord(L"N", L"b")};
    records[0].m_nIdentifier = -1;
    struct Case {
        const wchar_t* m_pszAction;
        const wchar_t* m_pszName;
        unsigned long m_nCount;
        EONEVENTSTRUCT* m_pRecords;
        EResult m_Result;
        bool m_bQueued;
    };
    for (const Case& of :
         {Case{L"DoLogEventToFile", L"Log", 0, records, RC_NO_RECORD, false},
          Case{L"DoLogEventToFile", L"Log", 1, nullptr, RC_NO_RECORD, false},
          Case{L"?", L"?", 0, records, RC_NO_RECORD, false}, Case{L"?", L"?", 1, records, RC_NO_LOG_FILE, false},
          Case{L"DoLogEventToFile", L"log", 1, records, RC_NO_LOG_FILE, false},
          Case{L"DoLogEventToFile", L"", 1, records, RC_NO_LOG_FILE, false},
          Case{L"dologeventtofile", L"Log", 1, records, RC_NO_ACTION, false},
          Case{L"DoLogEventToFile ", L"Log", 1, records, RC_NO_ACTION, false},
          Case{L"", L"Log", 1, records, RC_NO_ACTION, false},
          Case{L"DoLogDelivery", L"Log", 1, records, RC_NO_ACTION, false},
          Case{L"DoLogDelivery", L"Up", 1, records, RC_OK, true},
          Case{L"DoLogDelivery", L"Mail", 1, records, RC_OK, true},
          Case{L"DoLogSnapShotToFile", L"Log", 1, records, RC_OK, true},
          Case{L"DoLogEventToFile", L"Log", 1, records, RC_OK, true},
          Case{L"DoRestartLogFile", L"Log", 1, records, RC_OK, true},
          Case{L"DoLogAlarmToFile", L"Log", 1, records, RC_OK, true},
          Case{L"DoLogAlarmToFile", L"Log", 1, records + 1, RC_OK, false}}) {
        SCOPED_TRACE(testing::Message() << of.m_pszAction << '/' << of.m_pszName << '/' << of.m_nCount);
        const std::size_t before = Queued().size();
        EXPECT_EQ(Invoke(of.m_pszAction, of.m_pszName, of.m_nCount, of.m_pRecords), of.m_Result);
        EXPECT_EQ(Queued().size() - before, of.m_bQueued ? 1U : 0U);
    }
    EString name = L"Log";
    EString unknown = L"?";
    EXPECT_EQ(m_pService->ReportEvent(nullptr), RC_NO_RECORD);
    EXPECT_EQ(m_pService->LogAlarm(unknown, records), RC_NO_LOG_FILE);
    EXPECT_EQ(m_pService->LogSnapShot(unknown, records, 1), RC_NO_LOG_FILE);
    EXPECT_EQ(m_pService->LogAlarm(name, nullptr), RC_NO_RECORD);
    EXPECT_EQ(m_pService->LogSnapShot(name, nullptr, 2), RC_NO_RECORD);
    const std::size_t before = Queued().size();
    EXPECT_EQ(m_pService->LogSnapShot(name, records, 2), RC_OK);
    EXPECT_EQ(m_pService->LogSnapShot(name, records, 0), RC_OK);
    EXPECT_EQ(Invoke(L"DoLogDelivery", L"Up", 2, records), RC_OK); // keeps all records, though it needs none
    const Texts queued = Queued();
    EXPECT_EQ(Texts(queued.begin() + static_cast<std::ptrdiff_t>(before), queued.end()), (Texts{"a,b", "", "a,b"}));
}

TEST_F(Intake, AnAlarmGoesToTheLogFileOfItsIdentifierOnly) {
    Workplace::WriteSection(SPECS);
    m_pService->PrepareToStart();
    ASSERT_EQ(m_pService->Restore(0, 5), RC_OK);
    for (const int id : {-1, 0, 4, 5, 6}) {
        EONEVENTSTRUCT records[2] = {MakeRecord(L"N", L"a"), MakeRecord(L"N", L"b")};
        records[0].m_nIdentifier = id; // the first one counts
        records[1].m_nIdentifier = 5;
        EXPECT_EQ(Invoke(L"DoLogAlarmToFile", L"Log@5", 2, records), RC_OK);
        EXPECT_EQ(Queued().size(), id < 5 ? 0U : 1U) << id;
    }
}

TEST_F(Intake, TheFiveActionsOnDisk) {
    Configure({SpecItems{.m_Name = "Alarms", .m_File = "a-%i.csv"}, SpecItems{.m_Name = "Events", .m_File = "e.csv"},
               SpecItems{.m_Name = "Values", .m_File = "v.csv"},
               SpecItems{.m_Name = "Up", .m_File = "up.csv", .m_nDelivery = 2}});
    EONEVENTSTRUCT records[2] = {MakeRecord(L"P", L"T"), MakeRecord(L"Q", L"U")};
    records[0].m_nIdentifier = -1;
    const std::pair<const wchar_t*, const wchar_t*> requests[] = {
        {L"DoLogAlarmToFile", L"Alarms"}, {L"DoRestartLogFile", L"Alarms"},    {L"DoLogAlarmToFile", L"Alarms"},
        {L"DoLogEventToFile", L"Events"}, {L"DoLogSnapShotToFile", L"Values"}, {L"DoLogEventToFile", L"Up"},
        {L"DoLogDelivery", L"Up"},
    };
    for (const auto& [action, name] : requests) {
        EXPECT_EQ(Invoke(action, name, 2, records), RC_OK);
    }
    records[0].m_pszName = L"changed since"; // the requests have texts of their own
    WriteAll();
    const std::string alarms = "H956,H957,H958,H959,H960,H961,H962,H963,H964,H965\n"
                               "01-31-2024,13:05:09.042,P,T,S,D,Not Active,Not ACKED,7,17\n";
    EXPECT_EQ(ReadWhole("logs/a-1.csv"), alarms);
    EXPECT_EQ(ReadWhole("logs/a-0.csv"), alarms);
    EXPECT_EQ(ReadWhole("logs/e.csv"), "01-31-2024 13:05:09.042 S P: T\n");
    EXPECT_EQ(ReadWhole("logs/v.csv"), "H956,H957,P,Q\n01-31-2024,13:05:09.042,17,17\n");
    ASSERT_EQ(m_Kernel.m_Upload.m_Uploads.size(), 1U);
    EXPECT_EQ(m_Kernel.m_Upload.m_Uploads[0].m_Contents.begin()->second, "01-31-2024 13:05:09.042 S P: T\n");
}

// Requests that came before Start are written at once, and those beyond the bound never, whoever reports them.
TEST_F(Intake, AFullQueueDropsTheNewest) {
    Configure({SpecItems{}, SpecItems{.m_Name = "KernelLog", .m_Path = "", .m_File = "kernel.log"}});
    Texts expected;
    for (int i = 0; i < 600; ++i) {
        EXPECT_EQ(Alarm(L"Log", Mark(1, i).c_str()), RC_OK);
        if (i < 512) {
            expected.push_back(Narrow(Mark(1, i).c_str()));
        }
    }
    EONEVENTSTRUCT record = MakeRecord();
    EXPECT_EQ(Invoke(L"DoLogEventToFile", L"Log", 1, &record), RC_OK);
    m_pService->m_State = CKernelService::STATE_STARTED; // as the worker's absence would let the queue fill up
    EXPECT_EQ(Event(L"dropped"), RC_OK);
    m_pService->m_State = CKernelService::STATE_PRE_STARTED;
    EXPECT_EQ(Queued(), expected);
    WriteAll();
    const auto marks = MarksIn("logs/log-0.csv");
    EXPECT_EQ(marks.at(1).size(), 512U);
    EXPECT_TRUE(InOrder(marks));
    EXPECT_FALSE(std::filesystem::exists("kernel.log"));
}

TEST_F(Intake, EarlyEventsAreWrittenBeforeTheFirstThatCanBe) {
    const auto row = [](const std::string& text) { return "01-31-2024 13:05:09.042 S N: " + text + '\n'; };
    Event(L"one");
    Event(L"two");
    EXPECT_EQ(m_pService->m_EarlyEvents.GetCount(), 2);
    Configure({SpecItems{.m_Name = "KernelLog", .m_Path = "", .m_File = "k.log", .m_nFiles = 1, .m_nFormat = 0}});
    EXPECT_FALSE(std::filesystem::exists("k.log"));
    Event(L"three"); // in this thread
    EXPECT_EQ(ReadWhole("k.log"), row("one") + row("two") + row("three"));
    EXPECT_EQ(Queued(), Texts{});

    OnThreads(8, [&](int thread) {
        for (int i = 0; i < 50; ++i) {
            EXPECT_EQ(Event(Mark(thread, i).c_str()), RC_OK);
        }
    });
    const auto marks = MarksIn("k.log");
    EXPECT_TRUE(InOrder(marks));
    EXPECT_EQ(marks.size(), 8U);
    for (const auto& [thread, numbers] : marks) {
        EXPECT_EQ(numbers.size(), 50U);
    }
    EXPECT_EQ(std::filesystem::file_size("k.log"),
              3 * row("").size() + 11 + 8 * (10 * row("r0#0;").size() + 40 * row("r0#10;").size()));
}

// A started service leaves them where they are.
TEST_F(Intake, EarlyEventsWaitWhileTheWorkerRuns) {
    Event(L"early");
    Configure({});
    m_pService->Start();
    Event(L"queued");
    EXPECT_TRUE(Soon([&] { return Queued().empty(); }));
    m_pService->PrepareToStop();
    EXPECT_EQ(m_pService->m_EarlyEvents.GetCount(), 1);
    const auto written = static_cast<std::size_t>(std::filesystem::file_size("Kavro.log"));
    Event(L"late");
    EXPECT_EQ(m_pService->m_EarlyEvents.GetCount(), 0);
    std::string bytes = ReadWhole("Kavro.log").substr(written);
    std::erase(bytes, '\0');
    EXPECT_EQ(bytes, "01-31-2024 13:05:09.042 S N: early\n01-31-2024 13:05:09.042 S N: late\n");
}

TEST_F(Intake, WakeUpsWithoutRequestsHarmNothing) {
    Configure(SPECS);
    m_pService->Start();
    for (int i = 0; i < 100; ++i) {
        m_pService->m_WakeEvent.Set();
        EXPECT_EQ(Alarm(L"Log", L"T"), RC_OK);
        m_pService->m_WakeEvent.Set();
        EXPECT_TRUE(Soon([&] { return Queued().empty(); })); // none waits while the worker sleeps
    }
}

// A reporter pays for the copy of its record, not for the place in the queue.
TEST_F(Intake, AReportCostsFourAllocationsHoweverManyLogFilesThereAre) {
    std::vector<std::string> specs;
    for (int i = 0; i < 200; ++i) {
        specs.push_back(SpecItems{.m_Name = "Log" + std::to_string(i)});
    }
    Configure(specs);
    EString name = L"Log150";
    EONEVENTSTRUCT record = MakeRecord();
    for (int i = 0; i < 8; ++i) { // fills a block of the list
        m_pService->LogAlarm(name, &record);
    }
    const AllocationCount counted;
    delete static_cast<ELogInfo*>(m_pService->m_LogQueue.RemoveHead());
    m_pService->LogAlarm(name, &record);
    EXPECT_LE(counted.Count(), 4U);
}

} // namespace
