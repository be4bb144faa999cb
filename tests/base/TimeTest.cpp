#include "base/ETime.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

// In an order in which each is computed from the one before: in the same minute, forwards, backwards.
TEST(Time, UtcAndLocalCalendar) {
    const struct {
        std::uint32_t m_nSeconds;
        const char* m_pszUtc;
        const char* m_pszCentralEurope;
    } cases[] = {{0, "1970-01-01 00:00:00.999", "1970-01-01 01:00:00.999"},
                 {951782459, "2000-02-29 00:00:59.999", "2000-02-29 01:00:59.999"},
                 {951782460, "2000-02-29 00:01:00.999", "2000-02-29 01:01:00.999"},
                 {951782400, "2000-02-29 00:00:00.999", "2000-02-29 01:00:00.999"},
                 {1711846799, "2024-03-31 00:59:59.999", "2024-03-31 01:59:59.999"},
                 {1711846800, "2024-03-31 01:00:00.999", "2024-03-31 03:00:00.999"}, // clocks go forward
                 {1729990800, "2024-10-27 01:00:00.999", "2024-10-27 02:00:00.999"}, // and back
                 {4294967295, "2106-02-07 06:28:15.999", "2106-02-07 07:28:15.999"}};
    setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    tzset();
    for (const bool local : {false, true}) {
        ETime time(ETimeStamp{5, 5});
        for (const auto& [seconds, utc, centralEurope] : cases) {
            for (const int milliseconds : {1000, 999, 65535}) { // there are no more than 999
                time.SetStamp({seconds, static_cast<std::uint16_t>(milliseconds)});
                time.ComputeCalendar(local);
                char text[64];
                std::snprintf(text, sizeof text, "%d-%02d-%02d %02d:%02d:%02d.%03d", time.m_nYear + 1900,
                              time.m_nMonth + 1, time.m_nDay, time.m_nHour, time.m_nMinute, time.m_nSecond,
                              time.m_nMillisecond);
                EXPECT_STREQ(text, local ? centralEurope : utc);
            }
        }
    }
}
