#include "base/EONEVENTSTRUCT.h"
#include "base/ETime.h"
#include "base/EscFilter.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <ctime>

namespace {

// Central European time, whatever the process's zone is.
class TimeZoned : public testing::Test {
protected:
    void SetUp() override { Set("CET-1CEST,M3.5.0,M10.5.0/3"); }
    void TearDown() override { Set(m_pszBefore != nullptr ? m_Before.c_str() : nullptr); }

    static void Set(const char* zone) {
        zone != nullptr ? setenv("TZ", zone, 1) : unsetenv("TZ");
        tzset();
    }

private:
    const char* m_pszBefore = std::getenv("TZ");
    std::string m_Before = m_pszBefore != nullptr ? m_pszBefore : "";
};

using Time = TimeZoned;
using EscapeFilter = TimeZoned;

std::string Calendar(ETime& time, bool local) {
    time.ComputeCalendar(local);
    char text[64];
    std::snprintf(text, sizeof text, "%d-%02d-%02d %02d:%02d:%02d.%03d", time.m_nYear + 1900, time.m_nMonth + 1,
                  time.m_nDay, time.m_nHour, time.m_nMinute, time.m_nSecond, time.m_nMillisecond);
    return text;
}

TEST_F(Time, Calendar) {
    const struct {
        std::uint32_t m_nSeconds;
        std::string m_Utc;
        std::string m_CentralEurope;
    } cases[] = {
        {0, "1970-01-01 00:00:00", "1970-01-01 01:00:00"},
        {951782400, "2000-02-29 00:00:00", "2000-02-29 01:00:00"},
        {1704063600, "2023-12-31 23:00:00", "2024-01-01 00:00:00"},
        {1711846799, "2024-03-31 00:59:59", "2024-03-31 01:59:59"},
        {1711846800, "2024-03-31 01:00:00", "2024-03-31 03:00:00"}, // clocks go forward
        {1729990799, "2024-10-27 00:59:59", "2024-10-27 02:59:59"},
        {1729990800, "2024-10-27 01:00:00", "2024-10-27 02:00:00"}, // and back
        {2147483648, "2038-01-19 03:14:08", "2038-01-19 04:14:08"},
        {4294967295, "2106-02-07 06:28:15", "2106-02-07 07:28:15"},
    };
    for (const auto& [seconds, utc, centralEurope] : cases) {
        ETime time(ETimeStamp{seconds, 999});
        EXPECT_EQ(Calendar(time, true), centralEurope + ".999");
        EXPECT_EQ(Calendar(time, false), utc + ".999");
        EXPECT_EQ(Calendar(time, true), centralEurope + ".999");
    }
    Set("UTC");
    ETime time(ETimeStamp{1711846800, 0});
    EXPECT_EQ(Calendar(time, true), "2024-03-31 01:00:00.000");
}

TEST_F(Time, NowIsTheSystemsTime) {
    const auto before = std::chrono::system_clock::now().time_since_epoch();
    ETimeStamp now;
    ETime::GetTimeStamp(&now);
    const auto after = std::chrono::system_clock::now().time_since_epoch();
    const std::chrono::milliseconds told(now.m_nSeconds * 1000LL + now.m_nMilliseconds);
    EXPECT_LE(std::chrono::floor<std::chrono::milliseconds>(before), told);
    EXPECT_LE(told, after);
    EXPECT_LT(+now.m_nMilliseconds, 1000);
}

// All pieces joined, "STOP" when the expansion stops.
std::wstring Expanded(EscFilter filter) {
    std::wstring text;
    int stop = 0;
    while (const wchar_t* piece = filter.GetNextPiece(stop)) {
        text += piece;
    }
    return stop != 0 ? L"STOP" : text;
}

TEST_F(EscapeFilter, Expands) {
    EONEVENTSTRUCT record;
    record.m_nIndex = -12;
    const ETimeStamp stamp{1707102249, 7}; // 2024-02-05 03:04:09 UTC
    const struct {
        const wchar_t* m_pszText;
        std::wstring m_Both;
        bool m_bNeedsRecord;
        bool m_bNeedsStamp;
    } cases[] = {
        {nullptr, L"", false, false},
        {L"plain.csv", L"plain.csv", false, false},
        {L"a%ib", L"a-12b", true, false},
        {L"%Y-%m-%d", L"2024-02-05", false, true},
        {L"%y %H%M%S.%s", L"24 040409.007", false, true},
        {L"%i%i-%Y", L"-12-12-2024", true, true},
        {L"%%i%%%i", L"%i%-12", true, false},
        {L"%", L"%", false, false},
        {L"100%", L"100%", false, false},
        {L"%q%I%5d%\u00e9% i", L"%q%I%5d%\u00e9% i", false, false},
    };
    for (const auto& [text, both, needsRecord, needsStamp] : cases) {
        EXPECT_EQ(Expanded({nullptr, text, &record, false, &stamp, 0}), both);
        EXPECT_EQ(Expanded({nullptr, text, nullptr, false, &stamp, 0}), needsRecord ? L"STOP" : both);
        EXPECT_EQ(Expanded({nullptr, text, &record, false, nullptr, 0}), needsStamp ? L"STOP" : both);
    }
}

} // namespace
