#include "base/ETime.h"

#include <ctime>

namespace {

std::int16_t MillisecondOf(const ETimeStamp& stamp) {
    return static_cast<std::int16_t>(stamp.m_nMilliseconds < 1000 ? stamp.m_nMilliseconds : 999);
}

} // namespace

void ETime::GetTimeStamp(ETimeStamp* stamp) {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    stamp->m_nSeconds = static_cast<std::uint32_t>(now.tv_sec);
    stamp->m_nMilliseconds = static_cast<std::uint16_t>(now.tv_nsec / 1'000'000);
}

void ETime::SetStamp(const ETimeStamp& stamp) {
    const std::int64_t second = std::int64_t{m_nSecond} + stamp.m_nSeconds - m_Stamp.m_nSeconds;
    if (m_Computed != Zone::None && second >= 0 && second < 60) { // daylight saving changes at a full minute
        m_nSecond = static_cast<int>(second);
        m_nMillisecond = MillisecondOf(stamp);
    } else {
        m_Computed = Zone::None;
    }
    m_Stamp = stamp;
}

void ETime::ComputeCalendar(bool local) {
    const Zone zone = local ? Zone::Local : Zone::Utc;
    if (m_Computed == zone) {
        return;
    }
    const std::time_t seconds = static_cast<std::time_t>(m_Stamp.m_nSeconds);
    static_assert(sizeof(std::time_t) == 8, "a calendar past 2038 needs 64-bit seconds");
    std::tm calendar{};
    local ? localtime_r(&seconds, &calendar) : gmtime_r(&seconds, &calendar);
    m_nMillisecond = MillisecondOf(m_Stamp);
    m_nSecond = calendar.tm_sec;
    m_nMinute = calendar.tm_min;
    m_nHour = calendar.tm_hour;
    m_nDay = calendar.tm_mday;
    m_nMonth = calendar.tm_mon;
    m_nYear = calendar.tm_year;
    m_Computed = zone;
}
