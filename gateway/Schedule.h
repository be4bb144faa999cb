#pragma once

#include "gateway/Moments.h"

#include <optional>
#include <vector>

// An action that a log file is asked for again and again.
struct ScheduleEntry {
    std::string m_Action;
    std::string m_Log;
    std::optional<std::chrono::milliseconds> m_Every; // counted from the start
    int m_nTimeOfDay = 0;                             // without m_Every: seconds from midnight, local time
};

// Knows when which entry is due. The caller tells the time: a steady one for spans, the clock for times of day.
class Schedule {
public:
    using Steady = std::chrono::steady_clock::time_point;

    Schedule(const std::vector<ScheduleEntry>& entries, Steady steady, std::time_t clock);

    // Whether an entry waits to be taken. One that becomes due again before it is taken is still taken only once.
    bool HasDue(Steady steady, std::time_t clock);
    ScheduleEntry TakeDue(); // the first one that waits; there has to be one

    // How long nothing will be due, as far as can be told; the clock may be set meanwhile, hence at most half a minute.
    std::chrono::milliseconds UntilNext(Steady steady, std::time_t clock) const;

private:
    struct Timer {
        ScheduleEntry m_Entry;
        Steady m_NextSpan;      // with m_Every
        std::time_t m_NextTime; // otherwise
        bool m_bDue = false;
    };

    std::vector<Timer> m_Timers;
};
