#include "base/ETime.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

namespace {

std::string Calendar(ETime& time, bool local) {
    time.ComputeCalendar(local);
    char text[64];
    std::snprintf(text, sizeof text, "%d-%02d-%02d %02d:%02d:%02d.%03d", time.m_nYear + 1900, time.m_nMonth + 1,
                  time.m_nDay, time.m_nHour, time.m_nMinute, time.m_nSecond, time.m_nMillisecond);
    return text;
}

TEST(Time, Calendar) {
    const std::tuple<std::uint32_t, std::string, std::string> cases[] = {
        {0, "1970-01-01 00:00:00", "1970-01-01 01:00:00"},
        {951782459, "2000-02-29 00:00:59", "2000-02-29 01:00:59"},
        {951782460, "2000-02-29 00:01:00", "2000-02-29 01:01:00"}, // goes on in the next minute, and back
        {951782400, "2000-02-29 00:00:00", "2000-02-29 01:00:00"},
        {1711846799, "2024-03-31 00:59:59", "2024-03-31 01:59:59"},
        {1711846800, "2024-03-31 01:00:00", "2024-03-31 03:00:00"}, // clocks go forward
        {1729990799, "2024-10-27 00:59:59", "2024-10-27 02:59:59"},
        {1729990800, "2024-10-27 01:00:00", "2024-10-27 02:00:00"}, // and back
        {4294967295, "2106-02-07 06:28:15", "2106-02-07 07:28:15"}};
    setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    tzset();
    ETime local(ETimeStamp{5, 5});
    ETime utc(local);
    for (const auto& [seconds, inUtc, inCentralEurope] : cases) {
        local.SetStamp({seconds, 999});
        utc.SetStamp({seconds, 999});
        EXPECT_EQ(Calendar(local, true), inCentralEurope + ".999");
        EXPECT_EQ(Calendar(utc, false), inUtc + ".999");
    }
}

} // namespace
