#include "base/EONEVENTSTRUCT.h"
#include "base/ETime.h"
#include "base/EscFilter.h"

#include <gtest/gtest.h>

#include <chrono>
#include <ctime>

namespace {

// The process's time zone, as long as it lives.
class Zone {
public:
    explicit Zone(const char* zone) {
        const char* old = std::getenv("TZ");
        m_bHad = old != nullptr;
        m_Old = m_bHad ? old : "";
        setenv("TZ", zone, 1);
        tzset();
    }
    ~Zone() {
        m_bHad ? setenv("TZ", m_Old.c_str(), 1) : unsetenv("TZ");
        tzset();
    }

private:
    bool m_bHad;
    std::string m_Old;
};

constexpr const char* CENTRAL_EUROPE = "CET-1CEST,M3.5.0,M10.5.0/3";

std::string Calendar(const ETime& time) {
    char text[64];
    std::snprintf(text, sizeof text, "%d-%02d-%02d %02d:%02d:%02d.%03d", time.m_nYear + 1900, time.m_nMonth + 1,
                  time.m_nDay, time.m_nHour, time.m_nMinute, time.m_nSecond, time.m_nMillisecond);
    return text;
}

TEST(Time, Calendar) {
    const struct {
        std::uint32_t m_nSeconds;
        const char* m_pszUtc;
        const char* m_pszCentralEurope;
    } cases[] = {
        {0, "1970-01-01 00:00:00", "1970-01-01 01:00:00"},
        {951782400, "2000-02-29 00:00:00", "2000-02-29 01:00:00"},
        {1704063599, "2023-12-31 22:59:59", "2023-12-31 23:59:59"},
        {1704063600, "2023-12-31 23:00:00", "2024-01-01 00:00:00"},
        {1711846799, "2024-03-31 00:59:59", "2024-03-31 01:59:59"},
        {1711846800, "2024-03-31 01:00:00", "2024-03-31 03:00:00"}, // clocks go forward
        {1729990799, "2024-10-27 00:59:59", "2024-10-27 02:59:59"},
        {1729990800, "2024-10-27 01:00:00", "2024-10-27 02:00:00"}, // and back
        {2147483647, "2038-01-19 03:14:07", "2038-01-19 04:14:07"},
        {2147483648, "2038-01-19 03:14:08", "2038-01-19 04:14:08"},
        {4294967295, "2106-02-07 06:28:15", "2106-02-07 07:28:15"},
    };
    const Zone zone(CENTRAL_EUROPE);
    for (const auto& [seconds, utc, centralEurope] : cases) {
        ETime time(ETimeStamp{seconds, 999});
        time.ComputeCalendar(true);
        EXPECT_EQ(Calendar(time), std::string(centralEurope) + ".999");
        time.ComputeCalendar(false);
        EXPECT_EQ(Calendar(time), std::string(utc) + ".999");
        time.ComputeCalendar(true);
        EXPECT_EQ(Calendar(time), std::string(centralEurope) + ".999");
        const Zone standard("UTC");
        ETime local(ETimeStamp{seconds, 0});
        local.ComputeCalendar(true);
        EXPECT_EQ(Calendar(local), std::string(utc) + ".000");
    }
}

TEST(Time, NowIsTheSystemsTime) {
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
std::wstring Expanded(EscFilter& filter) {
    std::wstring text;
    int stop = 0;
    while (const wchar_t* piece = filter.GetNextPiece(stop)) {
        if (stop != 0) {
            return L"STOP";
        }
        text += piece;
    }
    return text;
}

TEST(EscapeFilter, Expands) {
    const Zone zone(CENTRAL_EUROPE);
    EONEVENTSTRUCT record;
    record.m_nIndex = 12;
    const ETimeStamp stamp{1707102249, 7}; // 2024-02-05 03:04:09 UTC
    const struct {
        const wchar_t* m_pszText;
        const wchar_t* m_pszBoth;
        const wchar_t* m_pszNoRecord;
        const wchar_t* m_pszNoStamp;
    } cases[] = {
        {L"", L"", L"", L""},
        {nullptr, L"", L"", L""},
        {L"plain.csv", L"plain.csv", L"plain.csv", L"plain.csv"},
        {L"a%ib", L"a12b", L"STOP", L"a12b"},
        {L"%Y-%m-%d", L"2024-02-05", L"2024-02-05", L"STOP"},
        {L"%y %H%M%S.%s", L"24 040409.007", L"24 040409.007", L"STOP"},
        {L"%i%i-%Y", L"1212-2024", L"STOP", L"STOP"},
        {L"100%%", L"100%", L"100%", L"100%"},
        {L"%%i%%%i", L"%i%12", L"STOP", L"%i%12"},
        {L"%", L"%", L"%", L"%"},
        {L"100%", L"100%", L"100%", L"100%"},
        {L"%q%I%5d%\u00e9% i", L"%q%I%5d%\u00e9% i", L"%q%I%5d%\u00e9% i", L"%q%I%5d%\u00e9% i"},
    };
    for (const auto& [text, both, noRecord, noStamp] : cases) {
        EscFilter complete(nullptr, text, &record, false, &stamp, 0);
        EXPECT_EQ(Expanded(complete), both);
        complete.Rewind();
        EXPECT_EQ(Expanded(complete), both);
        EscFilter withoutRecord(nullptr, text, nullptr, false, &stamp, 0);
        EXPECT_EQ(Expanded(withoutRecord), noRecord);
        EscFilter withoutStamp(nullptr, text, &record, false, nullptr, 0);
        EXPECT_EQ(Expanded(withoutStamp), noStamp);
    }
    record.m_nIndex = INT32_MIN;
    EscFilter negative(nullptr, L"%i", &record, false, nullptr, 0);
    EXPECT_EQ(Expanded(negative), L"-2147483648");
}

} // namespace
