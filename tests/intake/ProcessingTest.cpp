#include "tests/AllocationCount.h"
#include "tests/files/LogFiles.h"

using namespace std::string_literals;

namespace {

class ProcessingTest : public LogFilesTest {
protected:
    // The last line of the first file.
    static std::string LastRow() {
        std::string bytes = ReadWhole("logs/log-0.csv");
        bytes.pop_back();
        return bytes.substr(bytes.rfind('\n') + 1);
    }
};

const std::string ALARM_COLUMNS = "H956,H957,H958,H959,H960,H961,H962,H963,H964,H965\n";

std::string Utf16(const std::string& text) {
    std::string wide;
    for (const char character : text) {
        wide += {character, '\0'};
    }
    return wide;
}

std::string HtmlRow(const std::string& cells, const std::string& tag) {
    std::string row = "<TR>\n";
    for (std::size_t at = 0; at < cells.size();) {
        const std::size_t end = cells.find_first_of(",\n", at);
        row += '<' + tag + '>' + cells.substr(at, end - at) + "</" + tag + ">\n";
        at = end + 1;
    }
    return row + "</TR>\n";
}

std::string HtmlFile(const std::string& columns, const std::string& row) {
    return "<!DOCTYPE HTML PUBLIC \"-//W3C//DTD HTML 4.0 Transitional//EN\">\n<HTML><HEAD><TITLE></TITLE>\n"
           "<META http-equiv=\"Content-Type\" content=\"text/html; charset=utf-8\">\n</HEAD>\n<BODY>\n"
           "<TABLE cellspacing=\"0\" cellpadding=\"4\" border=\"1\">\n<THEAD>\n" +
           HtmlRow(columns, "TH") + "</THEAD>\n<TBODY>\n" + HtmlRow(row, "TD");
}

} // namespace

TEST_F(ProcessingTest, WritesEachFormatInEachEncoding) {
    const std::string alarm = "01-31-2024,13:05:09.042,N,T,S,D,Not Active,Not ACKED,7,17\n";
    const std::string event = "01-31-2024 13:05:09.042 S N: T\n";
    const EONEVENTSTRUCT record = MakeRecord();
    const auto joined = [](std::string cells) {
        std::erase(cells, ',');
        return cells;
    };
    struct Case {
        ActionType m_Action;
        int m_nFormat;
        int m_nUnicode;
        Files m_Files;
    };
    const std::string first = "logs/log-0.csv";
    const Case cases[] = {
        {ACTION_LOG_ALARM, 0, 0, {{first, joined(ALARM_COLUMNS + alarm)}}},
        {ACTION_LOG_ALARM, 0, 1, {{first, "\xFF\xFE" + Utf16(joined(ALARM_COLUMNS + alarm))}}},
        {ACTION_LOG_ALARM, 1, 0, {{first, ALARM_COLUMNS + alarm}}},
        {ACTION_LOG_ALARM, 1, 1, {{first, "\xFF\xFE" + Utf16(ALARM_COLUMNS + alarm)}}},
        {ACTION_LOG_ALARM, 2, 0, {{first, HtmlFile(ALARM_COLUMNS, alarm)}}},
        {ACTION_LOG_ALARM, 2, 1, {{first, HtmlFile(ALARM_COLUMNS, alarm)}}},
        // Events have no columns: a header of no bytes leaves the new file empty, and an empty file is replaced.
        {ACTION_LOG_EVENT, 0, 0, {{first, event}, {"logs/log-1.csv", ""}}},
        {ACTION_LOG_EVENT, 1, 2, {{first, event}, {"logs/log-1.csv", ""}}},
        {ACTION_LOG_EVENT, 0, 1, {{first, "\xFF\xFE" + Utf16(event)}}},
        {ACTION_LOG_EVENT, 1, 1, {{first, "\xFF\xFE" + Utf16(event)}}},
        {ACTION_LOG_EVENT, 2, 0, {{first, HtmlFile("", event)}}}};
    for (const Case& each : cases) {
        std::filesystem::remove_all("logs");
        StartAnew({SpecItems{.m_nFormat = each.m_nFormat, .m_nUnicode = each.m_nUnicode}});
        EXPECT_EQ(Process(each.m_Action, &record), RC_OK);
        EXPECT_EQ(Found(), each.m_Files) << each.m_Action << ' ' << each.m_nFormat << ' ' << each.m_nUnicode;
    }
}

TEST_F(ProcessingTest, FillsAlarmCells) {
    struct Case {
        std::uint16_t m_wState;
        std::int32_t m_nNumber;
        double m_Value;
        const char* m_pszCells; // behind the texts
    };
    const Case cases[] = {{0x0006, 0, 0.1, "Active,ACKED,0,0.1"},
                          {0x0002, -1, 12.75, "Active,Not ACKED,-1,12.75"},
                          {0x0004, INT32_MAX, -1e300, "Not Active,ACKED,2147483647,-1e+300"},
                          {0xFFF9, INT32_MIN, 3, "Not Active,Not ACKED,-2147483648,3"}};
    Workplace::WriteSection({SpecItems{}});
    m_pService->PrepareToStart();
    m_pService->RTRestore(0, 4);
    for (const Case& each : cases) {
        EONEVENTSTRUCT record = MakeRecord(L"Pump@4", L"a,b");
        record.m_wState = each.m_wState;
        record.m_nAlarmNumber = each.m_nNumber;
        record.m_Value.SetDouble(each.m_Value);
        Process(ACTION_LOG_ALARM, &record, 1, L"Log@4");
        EXPECT_EQ(LastRow(), "01-31-2024,13:05:09.042,Pump@4,a,b,S,D,"s + each.m_pszCells);
    }
    const EONEVENTSTRUCT nothing;
    Process(ACTION_LOG_ALARM, &nothing, 1, L"Log@4");
    EXPECT_EQ(LastRow(), "01-01-1970,00:00:00.000,,,,,Not Active,Not ACKED,0,");
}

TEST_F(ProcessingTest, PutsPrefixNumbersInFrontOfEvents) {
    struct Case {
        std::int32_t m_Numbers[4];
        const char* m_pszPrefix;
    };
    const Case cases[] = {{{0, 0, 0, 0}, ""},
                          {{1, 2, 3, 4}, "[ 1,  2,  3,   4] "},
                          {{0, 0, 0, 5}, "[ 0,  0,  0,   5] "},
                          {{-1, 0, 0, 0}, "[-1,  0,  0,   0] "},
                          {{123, -4567, INT32_MIN, 12345}, "[123, -4567, -2147483648, 12345] "}};
    Configure({SpecItems{}});
    for (const Case& each : cases) {
        EONEVENTSTRUCT record = MakeRecord(L"100%s", L"%d: x");
        std::copy_n(each.m_Numbers, 4, record.m_nPrefixNumbers);
        Process(ACTION_LOG_EVENT, &record);
        EXPECT_EQ(LastRow(), each.m_pszPrefix + "01-31-2024 13:05:09.042 S 100%s: %d: x"s);
    }
    EONEVENTSTRUCT bare;
    bare.m_TimeStamp.m_nMilliseconds = 1;
    Process(ACTION_LOG_EVENT, &bare);
    EXPECT_EQ(LastRow(), "01-01-1970 00:00:00.001  : ");
}

TEST_F(ProcessingTest, MakesOneRowOfASnapshot) {
    EONEVENTSTRUCT records[6];
    const wchar_t* const names[] = {L"good", L"none", L"bad", L"uncertain", L"odd", nullptr};
    const std::uint32_t qualities[] = {192, 192, 0, 64, 65, 192};
    for (std::size_t i = 0; i < std::size(records); ++i) {
        records[i].m_pszName = names[i];
        records[i].m_Value.SetInteger(static_cast<int>(i));
        records[i].m_Value.SetQuality(qualities[i]);
    }
    records[1].m_nCode = 274;
    records[5].m_Value.SetText(L"text");
    ETimeStamp stamp = MakeRecord().m_TimeStamp;
    records[0].m_Value.SetTimestamp(stamp);
    records[1].m_TimeStamp.m_nSeconds = 1; // only the first record dates the row
    Configure({SpecItems{}});
    EXPECT_EQ(Process(ACTION_LOG_SNAPSHOT, records, 6), RC_OK);
    records[0].m_TimeStamp.m_nMilliseconds = 7; // a time of its own, if only a part of one
    records[0].m_nCode = 274;
    Process(ACTION_LOG_SNAPSHOT, records, 2);
    const std::string expected = "H956,H957,good,none,bad,uncertain,odd,\n"
                                 "01-31-2024,13:05:09.042,0,,????,????,4,text\n"
                                 "01-01-1970,00:00:00.007,,\n";
    EXPECT_EQ(Found(), (Files{{"logs/log-0.csv", expected}}));
    const EONEVENTSTRUCT alarm = MakeRecord();
    Process(ACTION_LOG_ALARM, &alarm);
    Process(ACTION_RESTART_FILE);
    EXPECT_EQ(Found(),
              (Files{{"logs/log-0.csv", "H956,H957,good,none,bad,uncertain,odd,\n"},
                     {"logs/log-1.csv", expected + "01-31-2024,13:05:09.042,N,T,S,D,Not Active,Not ACKED,7,17\n"}}))
        << "the first row's columns stay";
}

TEST_F(ProcessingTest, DoesNothingWhenThereIsNothingToDo) {
    Configure({SpecItems{}});
    const EONEVENTSTRUCT record = MakeRecord();
    EXPECT_EQ(m_pService->ProcessLogFile(nullptr), RC_NO_RECORD);
    EXPECT_EQ(Process(ACTION_LOG_ALARM), RC_OK);
    EXPECT_EQ(Process(ACTION_LOG_EVENT, &record, 0), RC_OK);
    EXPECT_EQ(Process(ACTION_RESTART_FILE), RC_OK); // no columns yet, no file
    EXPECT_EQ(Process(static_cast<ActionType>(5), &record), RC_OK);
    EXPECT_EQ(Process(static_cast<ActionType>(-1), &record), RC_OK);
    EXPECT_FALSE(Spec()->m_bHeadersSet);
    EXPECT_EQ(Process(ACTION_LOG_SNAPSHOT, &record, 0), RC_OK); // no row, and yet the columns are settled
    EXPECT_EQ(Found(), Files{});
    Process(ACTION_LOG_ALARM, &record);
    EXPECT_EQ(ReadWhole("logs/log-0.csv").substr(0, 10), "H956,H957\n");
}

TEST_F(ProcessingTest, AllocatesNothingForARow) {
    Configure({SpecItems{}});
    EONEVENTSTRUCT record = MakeRecord(L"A name of usual length", L"A text that is a bit longer than that");
    record.m_nAlarmNumber = 123456;
    record.m_Value.SetDouble(-1234.5);
    for (const ActionType action : {ACTION_LOG_ALARM, ACTION_LOG_SNAPSHOT}) {
        ELogInfo request(Spec(), action, 1, &record);
        m_pService->ProcessLogFile(&request);
        const AllocationCount allocations;
        m_pService->ProcessLogFile(&request);
        EXPECT_EQ(allocations.Count(), 0U);
    }
}
