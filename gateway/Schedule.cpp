#include "gateway/Schedule.h"

#include <algorithm>

Schedule::Schedule(const std::vector<ScheduleEntry>& entries, Steady steady, std::time_t clock) {
    for (const ScheduleEntry& entry : entries) {
        m_Timers.push_back({entry, steady + entry.m_Every.value_or(std::chrono::milliseconds(0)),
                            Moments::NextTimeOfDay(clock, entry.m_nTimeOfDay)});
    }
}

bool Schedule::HasDue(Steady steady, std::time_t clock) {
    constexpr std::time_t LONGEST_DAY = 25 * 3600 + 1; // seconds; the one on which the clock is put back
    bool any = false;
    for (Timer& timer : m_Timers) {
        if (const auto every = timer.m_Entry.m_Every; every && steady >= timer.m_NextSpan) {
            // What was missed (the machine slept) is not made up for, and the beat is kept.
            timer.m_NextSpan += *every * ((steady - timer.m_NextSpan) / *every + 1);
            timer.m_bDue = true;
        } else if (!every && (clock >= timer.m_NextTime || timer.m_NextTime - clock > LONGEST_DAY)) {
            timer.m_bDue = timer.m_bDue || clock >= timer.m_NextTime; // or the clock was set back: it would sleep long
            timer.m_NextTime = Moments::NextTimeOfDay(clock, timer.m_Entry.m_nTimeOfDay);
        }
        any = any || timer.m_bDue;
    }
    return any;
}

ScheduleEntry Schedule::TakeDue() {
    const auto timer = std::find_if(m_Timers.begin(), m_Timers.end(), [](const Timer& i) { return i.m_bDue; });
    timer->m_bDue = false;
    return timer->m_Entry;
}

std::chrono::milliseconds Schedule::UntilNext(Steady steady, std::time_t clock) const {
    std::chrono::milliseconds wait = std::chrono::seconds(30);
    for (const Timer& timer : m_Timers) {
        const std::chrono::milliseconds left =
            timer.m_Entry.m_Every ? std::chrono::ceil<std::chrono::milliseconds>(timer.m_NextSpan - steady)
                                  : std::chrono::seconds(timer.m_NextTime - clock);
        wait = std::clamp(left, std::chrono::milliseconds(0), wait);
    }
    return wait;
}
