#include "base/ETime.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <tuple>

// In an order in which each is computed from the one before: in the same minute, forwards, backwards.
TEST(Time, UtcAndLocalCalendar) {
    setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    tzset();
    ETime times[] = {ETime({5, 5}), ETime({5, 5})};
    for (const auto& [seconds, utc, centralEurope] :
         {std::tuple{0U, "1970-01-01 00:00:00.999", "1970-01-01 01:00:00.999"},
          {951782459U, "2000-02-29 00:00:59.999", "2000-02-29 01:00:59.999"},
          {951782460U, "2000-02-29 00:01:00.999", "2000-02-29 01:01:00.999"},
          {951782400U, "2000-02-29 00:00:00.999", "2000-02-29 01:00:00.999"},
          {1711846799U, "2024-03-31 00:59:59.999", "2024-03-31 01:59:59.999"},
          {1711846800U, "2024-03-31 01:00:00.999", "2024-03-31 03:00:00.999"}, // clocks go forward
          {1729990800U, "2024-10-27 01:00:00.999", "2024-10-27 02:00:00.999"}, // and back
          {4294967295U, "2106-02-07 06:28:15.999", "2106-02-07 07:28:15.999"}}) {
        for (const bool local : {false, true}) {
            ETime& time = times[local ? 1 : 0];
            time.SetStamp({seconds, 1000}); // there are no more milliseconds than 999
            time.ComputeCalendar(local);
            char text[64];
            std::snprintf(text, sizeof text, "%d-%02d-%02d %02d:%02d:%02d.%03d", time.m_nYear + 1900, time.m_nMonth + 1,
                          time.m_nDay, time.m_nHour, time.m_nMinute, time.m_nSecond, time.m_nMillisecond);
            EXPECT_STREQ(text, local ? centralEurope : utc);
        }
    }
}
