#pragma once

#include "base/ETimeStamp.h"
#include "base/Export.h"

// The calendar of a time stamp.
class KVBASE_API ETime {
public:
    explicit ETime(const ETimeStamp& stamp) : m_Stamp(stamp) {}

    // Changes the time stamp. Within the same minute the calendar is not computed again.
    void SetStamp(const ETimeStamp& stamp);

    // The current time.
    static void GetTimeStamp(ETimeStamp* stamp);

    // Fills the calendar fields, in local time (the process's time zone) or in UTC. A second call for the same zone
    // does nothing.
    void ComputeCalendar(bool local);

    std::int16_t m_nMillisecond = 0; // 0 to 999
    int m_nSecond = 0;               // 0 to 60
    int m_nMinute = 0;               // 0 to 59
    int m_nHour = 0;                 // 0 to 23
    int m_nDay = 0;                  // of the month, from 1
    int m_nMonth = 0;                // 0 is January
    int m_nYear = 0;                 // 0 is 1900

private:
    enum class Zone : unsigned char { None, Utc, Local };

    ETimeStamp m_Stamp;
    Zone m_Computed = Zone::None;
};
