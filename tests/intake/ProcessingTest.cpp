#include "tests/ServiceFixture.h"

#include <array>
#include <charconv>
#include <cmath>

using namespace std::string_literals;

namespace {

using ProcessingTest = ServiceTest;

constexpr const char* FIRST = "logs/log-0.csv";

TEST_F(ProcessingTest, EachFormatEncodesTheTextsInItsWay) {
    const std::string text = "\u00E9\u20AC\U0001F600<&";
    const auto expect = [&](const wchar_t* action, int format, int unicode, const Files& files) {
        std::filesystem::remove_all("logs");
        StartAnew({SpecItems{.m_nFormat = format, .m_nUnicode = unicode}});
        const EString wideText = Wide(text);
        EONEVENTSTRUCT record = MakeRecord(L"N", wideText);
        record.m_pszDetail = L"";
        record.m_nIdentifier = -1;
        EXPECT_EQ(Invoke(action, L"Log", &record), RC_OK);
        record.m_pszText = L"changed since"; // the request has texts of its own
        WriteAll();
        EXPECT_EQ(Found(), files) << format << unicode;
    };
    const std::string cells = "01-31-2024,13:05:09.042,N," + text + ",S,&nbsp;,Not Active,Not ACKED,7,17\n";
    expect(ACTION_NAME_ALARM, FORMAT_HTML, 0, {{FIRST, PageBegin(ALARM_COLUMNS) + PageRow(cells)}});
    const std::string row = "01-31-2024 13:05:09.042 S N: ";
    expect(ACTION_NAME_EVENT, FORMAT_HTML, 1, {{FIRST, PageBegin("") + PageRow(row + text + '\n')}});
    expect(ACTION_NAME_EVENT, FORMAT_PLAIN_TEXT, 1,
           {{FIRST, "\xFF\xFE" + Utf16(row) + "\xE9\0\xAC\x20\0\xF6<\0&\0\n\0"s}});
    // Events have no columns: a header of no bytes leaves the new file empty, and an empty file is replaced.
    expect(ACTION_NAME_EVENT, FORMAT_COMMA_SEPARATED, 2, {{FIRST, row + "\xE9\xAC\0<&\n"s}, {"logs/log-1.csv", ""}});
}

TEST_F(ProcessingTest, AlarmsAndEventsAsTheirRecordsSay) {
    Configure({SpecItems{}, SpecItems{.m_Name = "Event", .m_File = "event.csv"}}, 4);
    std::string alarms = ALARM_COLUMNS;
    std::string events;
    const auto report = [&](int state, int number, double value, const std::string& cells,
                            const std::array<std::int32_t, 4>& prefix, const std::string& printedPrefix) {
        EONEVENTSTRUCT record = MakeRecord(L"100%s@4", L"%d: a,b");
        record.m_TimeStamp.m_nSeconds = 4294967295; // the last one
        record.m_wState = static_cast<std::uint16_t>(state);
        record.m_nAlarmNumber = number;
        record.m_Value.SetDouble(value);
        std::ranges::copy(prefix, record.m_nPrefixNumbers);
        Process(ACTION_LOG_ALARM, &record, 1, L"Log@4");
        Process(ACTION_LOG_EVENT, &record, 1, L"Event@4");
        alarms += "02-07-2106,06:28:15.042,100%s@4,%d: a,b,S,D," + cells + '\n';
        events += printedPrefix + "02-07-2106 06:28:15.042 S 100%s@4: %d: a,b\n";
    };
    report(0x0006, 0, 0.1, "Active,ACKED,0,0.1", {0, 0, 0, 0}, "");
    report(0x0002, -1, 12.75, "Active,Not ACKED,-1,12.75", {123, -5, INT32_MIN, 5678}, "[123, -5, -2147483648, 5678] ");
    report(0xFFFD, INT32_MAX, -1e300, "Not Active,ACKED,2147483647,-1e+300", {0, 0, 0, 5}, "[ 0,  0,  0,   5] ");
    const EONEVENTSTRUCT nothing{};
    Process(ACTION_LOG_ALARM, &nothing, 1, L"Log@4");
    Process(ACTION_LOG_EVENT, &nothing, 1, L"Event@4");
    EXPECT_EQ(m_Kernel.m_Names.m_Parsed, "100%s@4;100%s@4;100%s@4;;") << "the name service hears the names";
    EXPECT_EQ(ReadWhole(FIRST), alarms + "01-01-1970,00:00:00.000,,,,,Not Active,Not ACKED,0,\n");
    EXPECT_EQ(ReadWhole("logs/event.csv"), events + "01-01-1970 00:00:00.000  : \n");
}

// As few digits as read back the same, and all of a column alike. Those of few decimals are printed in another way.
TEST_F(ProcessingTest, DoublesAreTheFewestDigits) {
    const auto print = [](double number) {
        CDataValue value;
        value.SetDouble(number);
        EString text;
        value.GetString(text, 0, 0, 0);
        return Narrow(text);
    };
    for (int i = -1'000'000; i <= 1'000'000; i += 67) {
        for (const double unit : {0.0001, 0.001, 0.1, 1.0, 1e6}) {
            const double product = i * unit; // not always the double next to the decimal number
            for (const double number : {product, i / (1 / unit), std::nextafter(product, 1e9)}) {
                char digits[64] = {};
                std::to_chars(digits, digits + sizeof digits, number, std::chars_format::fixed);
                ASSERT_TRUE(print(number) == digits || std::abs(number) < 1e-5) << digits;
            }
        }
    }
    EXPECT_EQ(print(-1e-5), "-0.00001");
    EXPECT_EQ(print(std::nextafter(1e-5, 0)), "9.999999999999999e-06");
    EXPECT_EQ(print(999999999999999.9), "999999999999999.9");
    EXPECT_EQ(print(1e15), "1e+15");
    EXPECT_EQ(print(-0.0), "-0");
}

TEST_F(ProcessingTest, ASnapshotIsOneRowAndTheFirstRowsColumnsStay) {
    EONEVENTSTRUCT records[6];
    const wchar_t* const names[] = {L"good", L"none", L"bad", L"uncertain", L"odd", nullptr};
    const std::uint32_t qualities[] = {192, 192, 0, 64, 65, 192};
    for (std::size_t i = 0; i < std::size(records); ++i) {
        records[i].m_pszName = names[i];
        records[i].m_Value.SetInteger(static_cast<int>(i));
        records[i].m_Value.SetQuality(qualities[i]);
    }
    records[1].m_nCode = 274;
    records[0].m_Value.SetBoolean(false);
    records[4].m_Value.SetBoolean(true);
    records[5].m_Value.SetText(L"text");
    records[0].m_Value.SetTimestamp(MakeRecord().m_TimeStamp);
    records[1].m_TimeStamp.m_nSeconds = 1; // only the first record dates the row
    Configure({SpecItems{}});
    m_pService->m_pNameService = &m_Kernel.m_Names;
    EXPECT_EQ(Invoke(L"DoLogSnapShotToFile", L"Log", records, 6), RC_OK);
    records[0].m_TimeStamp.m_nMilliseconds = 7; // a time of its own, if only a part of one
    records[0].m_nCode = 274;
    EXPECT_EQ(Invoke(L"DoLogSnapShotToFile", L"Log", records, 2), RC_OK);
    Alarm(L"T");
    EXPECT_EQ(Invoke(L"DoRestartLogFile", L"Log", records), RC_OK);
    WriteAll();
    EXPECT_EQ(m_Kernel.m_Names.m_Parsed, "good;none;bad;uncertain;odd;;good;none;N;");
    const std::string columns = "H956,H957,good,none,bad,uncertain,odd,\n";
    const std::string rows = "01-31-2024,13:05:09.042,false,,????,????,true,text\n"
                             "01-01-1970,00:00:00.007,,\n"
                             "01-31-2024,13:05:09.042,N,T,S,D,Not Active,Not ACKED,7,17\n";
    EXPECT_EQ(Found(), (Files{{FIRST, columns}, {"logs/log-1.csv", columns + rows}}));
}

TEST_F(ProcessingTest, ARequestWithoutRecordsWritesNothing) {
    Configure({SpecItems{}});
    EXPECT_EQ(m_pService->ProcessLogFile(nullptr), RC_NO_RECORD);
    EXPECT_EQ(m_pService->StartFile(Spec()), 0) << "the columns are not known";
    for (const int action : {0, 1, 4, -1, 2}) {
        EXPECT_EQ(Process(static_cast<ActionType>(action), nullptr, 0), RC_OK);
    }
    EXPECT_EQ(Found(), Files());
}

} // namespace
