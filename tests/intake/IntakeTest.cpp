#include "base/InterfaceIds.h"
#include "tests/AllocationCount.h"
#include "tests/ServiceFixture.h"

namespace {

using Intake = ServiceTest;

TEST_F(Intake, EachCallIsRefusedForItsFirstFault) {
    ASSERT_EQ(Configure({SpecItems{}, SpecItems{.m_Name = "Up", .m_nDelivery = 2},
                         SpecItems{.m_Name = "Mail", .m_nDelivery = 3}},
                        5),
              RC_OK);
    EONEVENTSTRUCT records[3] = {MakeRecord(L"N", L"a"), MakeRecord(L"N", L"b"), MakeRecord(L"N", L"c")};
    records[0].m_nIdentifier = 5;
    records[2].m_nIdentifier = 6;
    const struct {
        const wchar_t *m_pszAction, *m_pszName;
        unsigned long m_nCount;
        EONEVENTSTRUCT* m_pRecords;
        EResult m_Result;
        std::string m_Queued; // the texts of the records
    } cases[] = {{L"?", L"?", 0, records, RC_NO_RECORD, ""},
                 {L"DoLogEventToFile", L"Log@5", 1, nullptr, RC_NO_RECORD, ""},
                 {L"?", L"?", 1, records, RC_NO_LOG_FILE, ""},
                 {L"DoLogEventToFile", L"log@5", 1, records, RC_NO_LOG_FILE, ""},
                 {L"dologeventtofile", L"Log@5", 1, records, RC_NO_ACTION, ""},
                 {L"DoLogDelivery", L"Log@5", 1, records, RC_NO_ACTION, ""},
                 {L"DoLogDelivery", L"Up@5", 2, records, RC_OK, "a,b"},
                 {L"DoLogDelivery", L"Mail@5", 1, records, RC_OK, "a"},
                 // An alarm goes to the log file of its first record's identifier only.
                 {L"DoLogAlarmToFile", L"Log@5", 3, records, RC_OK, "a,b,c"},
                 {L"DoLogAlarmToFile", L"Log@5", 1, records + 1, RC_OK, ""},
                 {L"DoLogAlarmToFile", L"Log@5", 1, records + 2, RC_OK, ""}};
    Texts expected;
    for (const auto& [action, name, count, given, result, queued] : cases) {
        EXPECT_EQ(Invoke(action, name, given, count), result) << Narrow(EString(action)) << Narrow(EString(name));
        expected.insert(expected.end(), queued.empty() ? 0 : 1, queued);
        EXPECT_EQ(Queued(), expected);
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

// The kernel log's name is read first. The second one is refused in the end: the gateway has no upload service.
TEST_F(Intake, EventsThatCameDuringARestoreAreWrittenAtItsEnd) {
    m_Kernel.m_Missing = {IID_UPLOAD_SERVICE};
    EString name;
    int format = -1;
    EResult asked = RC_OK;
    m_Kernel.m_Names.m_OnQualify = [&] {
        Event(L"during");
        asked = m_pService->GetAgentLogFile(name, format);
    };
    for (const int delivery : {1, 2}) {
        End();
        Make();
        Event(L"one");
        Event(L"two");
        EXPECT_EQ(Configure({SpecItems{.m_Name = "KernelLog",
                                       .m_Path = "",
                                       .m_File = "k.log",
                                       .m_nFiles = 1,
                                       .m_nFormat = 0,
                                       .m_nDelivery = delivery}},
                            5),
                  RC_OK);
        EXPECT_EQ(asked, RC_NOT_FOUND) << "it has no format yet, and may be refused";
        std::string rows = EventRow("one") + EventRow("two") + EventRow("during");
        EXPECT_EQ(ReadWhole("k.log"), delivery == 1 ? rows : "");
        EXPECT_EQ(m_pService->RTRestore(0, 5), RC_OK);
        Event(L"after"); // in this thread
        rows += EventRow("during") + EventRow("after");
        EXPECT_EQ(ReadWhole("k.log"), delivery == 1 ? rows : "");
        OnThreads(8, [&](int thread) {
            for (const int number : UpTo(50)) {
                EXPECT_EQ(Event(Mark(thread, number).c_str()), RC_OK);
            }
        });
        EXPECT_EQ(MarksIn("k.log"), delivery == 1 ? FromThreads(8, 50) : Marks());
        std::filesystem::remove("k.log");
    }
}

// A reporter pays for the copy of its record, not for the place in the queue, and not for the other log files. Writing a
// row costs nothing.
TEST_F(Intake, AReportCostsTwoAllocationsAndARowNone) {
    Texts specs;
    for (const int number : UpTo(200)) {
        specs.push_back(SpecItems{.m_Name = "Log" + std::to_string(number)});
    }
    Configure(specs);
    EString name = L"Log150";
    EONEVENTSTRUCT record = MakeRecord(L"A name of usual length", L"A text that is a bit longer than that");
    record.m_nAlarmNumber = 123456;
    record.m_Value.SetDouble(-1234.5);
    for (int i = 0; i < 8; ++i) { // fills a block of the list
        m_pService->LogAlarm(name, &record);
    }
    const AllocationCount ofReport;
    delete static_cast<ELogInfo*>(m_pService->m_LogQueue.RemoveHead());
    m_pService->LogAlarm(name, &record);
    EXPECT_LE(ofReport.Count(), 2U); // the request with its record, and the texts
    for (const ActionType action : {ACTION_LOG_ALARM, ACTION_LOG_SNAPSHOT}) {
        ELogInfo request(Spec(name), action, 1, &record);
        m_pService->ProcessLogFile(&request);
        const AllocationCount ofRow;
        m_pService->ProcessLogFile(&request);
        EXPECT_EQ(ofRow.Count(), 0U);
    }
}

} // namespace
