#include "base/InterfaceIds.h"
#include "tests/AllocationCount.h"
#include "tests/ServiceFixture.h"

namespace {

using Texts = std::vector<std::string>;
using Intake = ServiceTest;

std::string EventRow(const std::string& text) {
    return "01-31-2024 13:05:09.042 S N: " + text + '\n';
}

TEST_F(Intake, EachCallIsRefusedForItsFirstFault) {
    Workplace::WriteSection(
        {SpecItems{}, SpecItems{.m_Name = "Up", .m_nDelivery = 2}, SpecItems{.m_Name = "Mail", .m_nDelivery = 3}});
    m_pService->PrepareToStart();
    ASSERT_EQ(m_pService->Restore(0, 5), RC_OK);
    EONEVENTSTRUCT records[3] = {MakeRecord(L"N", L"a"), MakeRecord(L"N", L"b"), MakeRecord(L"N", L"c")};
    records[0].m_nIdentifier = 5;
    records[2].m_nIdentifier = 6;
    struct Case {
        const wchar_t* m_pszAction;
        const wchar_t* m_pszName;
        unsigned long m_nCount;
        EONEVENTSTRUCT* m_pRecords;
        EResult m_Result;
        Texts m_Queued{};
    };
    const Case cases[] = {{L"?", L"?", 0, records, RC_NO_RECORD},
                          {L"DoLogEventToFile", L"Log@5", 1, nullptr, RC_NO_RECORD},
                          {L"?", L"?", 1, records, RC_NO_LOG_FILE},
                          {L"DoLogEventToFile", L"log@5", 1, records, RC_NO_LOG_FILE},
                          {L"dologeventtofile", L"Log@5", 1, records, RC_NO_ACTION},
                          {L"DoLogEventToFile ", L"Log@5", 1, records, RC_NO_ACTION},
                          {L"DoLogDelivery", L"Log@5", 1, records, RC_NO_ACTION},
                          {L"DoLogDelivery", L"Up@5", 2, records, RC_OK, {"a,b"}},
                          {L"DoLogDelivery", L"Mail@5", 1, records, RC_OK, {"a"}},
                          // An alarm goes to the log file of its first record's identifier only.
                          {L"DoLogAlarmToFile", L"Log@5", 3, records, RC_OK, {"a,b,c"}},
                          {L"DoLogAlarmToFile", L"Log@5", 1, records + 1, RC_OK},
                          {L"DoLogAlarmToFile", L"Log@5", 1, records + 2, RC_OK}};
    for (const Case& of : cases) {
        const auto skipped = static_cast<std::ptrdiff_t>(Queued().size());
        EXPECT_EQ(Invoke(of.m_pszAction, of.m_pszName, of.m_pRecords, of.m_nCount), of.m_Result) << &of - cases;
        const Texts queued = Queued();
        EXPECT_EQ(Texts(queued.begin() + skipped, queued.end()), of.m_Queued) << &of - cases;
    }
    EString name = L"Log@5";
    EString unknown = L"?";
    EXPECT_EQ(m_pService->ReportEvent(nullptr), RC_NO_RECORD);
    EXPECT_EQ(m_pService->LogAlarm(unknown, records), RC_NO_LOG_FILE);
    EXPECT_EQ(m_pService->LogSnapShot(unknown, records, 1), RC_NO_LOG_FILE);
    EXPECT_EQ(m_pService->LogAlarm(name, nullptr), RC_NO_RECORD);
    EXPECT_EQ(m_pService->LogSnapShot(name, nullptr, 2), RC_NO_RECORD);
    EXPECT_EQ(m_pService->LogSnapShot(name, records, 0), RC_OK);
    EXPECT_EQ(Queued().back(), "");
}

// Requests that came before Start are written at once, and those beyond the bound never, whoever reports them.
TEST_F(Intake, AFullQueueDropsTheNewest) {
    Configure({SpecItems{}, SpecItems{.m_Name = "KernelLog", .m_Path = "", .m_File = "kernel.log"}});
    for (int i = 0; i < 600; ++i) {
        EXPECT_EQ(Alarm(Mark(1, i).c_str()), RC_OK);
    }
    m_pService->m_State = CKernelService::STATE_STARTED; // as the worker's absence would let the queue fill up
    EXPECT_EQ(Event(L"dropped"), RC_OK);
    m_pService->m_State = CKernelService::STATE_PRE_STARTED;
    WriteAll();
    EXPECT_EQ(MarksIn("logs/log-0.csv"), (Marks{{1, UpTo(512)}}));
    EXPECT_FALSE(std::filesystem::exists("kernel.log"));
}

TEST_F(Intake, EarlyEventsAreWrittenBeforeTheFirstThatCanBe) {
    Event(L"one");
    Event(L"two");
    Configure({SpecItems{.m_Name = "KernelLog", .m_Path = "", .m_File = "k.log", .m_nFiles = 1, .m_nFormat = 0}});
    EXPECT_FALSE(std::filesystem::exists("k.log"));
    Event(L"three"); // in this thread
    EXPECT_EQ(ReadWhole("k.log"), EventRow("one") + EventRow("two") + EventRow("three"));

    OnThreads(8, [&](int thread) {
        for (const int number : UpTo(50)) {
            EXPECT_EQ(Event(Mark(thread, number).c_str()), RC_OK);
        }
    });
    EXPECT_EQ(MarksIn("k.log"), FromThreads(8, 50));
}

// Its name is read first, and it is known from there on.
TEST_F(Intake, EventsWaitUntilTheKernelLogIsRead) {
    for (const int delivery : {1, 2}) { // the second is refused: the gateway has no upload service
        m_Kernel.m_Missing = {IID_UPLOAD_SERVICE};
        m_Kernel.m_Names.m_OnQualify = [this] { Event(L"during"); };
        Workplace::WriteSection({SpecItems{
            .m_Name = "KernelLog", .m_Path = "", .m_File = "k.log", .m_nFormat = 0, .m_nDelivery = delivery}});
        m_pService->PrepareToStart();
        EXPECT_EQ(m_pService->Restore(0, 5), RC_OK);
        EXPECT_EQ(Workplace::Tree(), Texts{});
        Event(L"after");
        const bool accepted = delivery == 1;
        EXPECT_EQ(ReadWhole("k.log"), accepted ? EventRow("during") + EventRow("after") : "");
        End();
        std::filesystem::remove("k.log");
        Make();
    }
}

TEST_F(Intake, EarlyEventsWaitWhileTheWorkerWritesTheDefaultKernelLog) {
    Event(L"early");
    Configure({});
    m_pService->Start();
    Event(L"queued");
    WriteAll();
    Event(L"late");
    EXPECT_EQ(ReadWhole("Kavro.log"), "\xFF\xFE" + Utf16(EventRow("queued") + EventRow("early") + EventRow("late")));
    EXPECT_EQ(Workplace::Tree(), Texts{"Kavro.log"});
    EXPECT_EQ(Spec(L"KernelLog")->m_MaxFileSize, 512000);
}

// A reporter pays for the copy of its record, not for the place in the queue.
TEST_F(Intake, AReportCostsTwoAllocationsHoweverManyLogFilesThereAre) {
    std::vector<std::string> specs;
    for (const int number : UpTo(200)) {
        specs.push_back(SpecItems{.m_Name = "Log" + std::to_string(number)});
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
    EXPECT_LE(counted.Count(), 2U); // the request with its record, and the texts
}

} // namespace
