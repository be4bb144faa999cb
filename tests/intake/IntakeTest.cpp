#include "tests/ServiceFixture.h"

namespace {

using Intake = ServiceTest;

TEST_F(Intake, EachCallIsRefusedForItsFirstFault) {
    Configure({SpecItems{}, SpecItems{.m_Name = "Up", .m_nDelivery = 2}, SpecItems{.m_Name = "Mail", .m_nDelivery = 3}},
              5);
    EONEVENTSTRUCT records[3] = {MakeRecord(L"N", L"a"), MakeRecord(L"N", L"b"), MakeRecord(L"N", L"c")};
    records[0].m_nIdentifier = 5;
    records[2].m_nIdentifier = 6;
    EXPECT_EQ(Invoke(L"?", L"?", records, 0), RC_NO_RECORD);
    EXPECT_EQ(Invoke(ACTION_NAME_EVENT, L"Log@5", nullptr), RC_NO_RECORD);
    EXPECT_EQ(Invoke(L"?", L"log@5", records), RC_NO_LOG_FILE);
    EXPECT_EQ(Invoke(L"dologeventtofile", L"Log@5", records), RC_NO_ACTION);
    EXPECT_EQ(Invoke(ACTION_NAME_DELIVERY, L"Log@5", records), RC_NO_ACTION);
    EXPECT_EQ(Invoke(ACTION_NAME_DELIVERY, L"Up@5", records, 2), RC_OK);
    EXPECT_EQ(Invoke(ACTION_NAME_DELIVERY, L"Mail@5", records), RC_OK);
    for (EONEVENTSTRUCT& first : records) { // an alarm goes to the log file of its first record's identifier only
        EXPECT_EQ(Invoke(ACTION_NAME_ALARM, L"Log@5", &first), RC_OK);
    }
    EString name = L"Log@5";
    EString unknown = L"?";
    EXPECT_EQ(m_pService->GetGatewayType(name, nullptr), RC_NO_RECORD);
    EXPECT_EQ(Spec(L"Log@5")->Restore(0), RC_NO_SECTION);
    EXPECT_EQ(m_pService->ReportEvent(nullptr), RC_NO_RECORD);
    EXPECT_EQ(m_pService->LogAlarm(name, nullptr), RC_NO_RECORD);
    EXPECT_EQ(m_pService->LogSnapShot(name, nullptr, 2), RC_NO_RECORD);
    EXPECT_EQ(m_pService->LogSnapShot(unknown, records, 1), RC_NO_LOG_FILE);
    EXPECT_EQ(m_pService->LogSnapShot(name, records, 0), RC_OK);
    EXPECT_EQ(Queued(), (Texts{"a,b", "a", "a", ""}));
}

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

TEST_F(Intake, EventsThatCameDuringARestoreAreWrittenAtItsEnd) {
    EString name;
    int format = -1;
    EResult asked = RC_OK;
    m_Kernel.m_Names.m_OnQualify = [&] {
        Event(L"during");
        asked = m_pService->GetAgentLogFile(name, format);
    };
    Event(L"one");
    Event(L"two");
    EXPECT_EQ(Configure({SpecItems{.m_Name = "KernelLog", .m_Path = "", .m_File = "k.log"}}, 5), RC_OK);
    EXPECT_EQ(asked, RC_NOT_FOUND) << "it has no format yet, and may be refused";
    const std::string rows = EventRow("one") + EventRow("two") + EventRow("during");
    EXPECT_EQ(ReadWhole("k.log"), rows);
    EXPECT_EQ(m_pService->RTRestore(0, 5), RC_OK);
    Event(L"after"); // in this thread
    EXPECT_EQ(ReadWhole("k.log"), rows + EventRow("during") + EventRow("after"));
}

} // namespace
