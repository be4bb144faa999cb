#include "gateway/Schedule.h"

#include "gateway/Moments.h"

#include <algorithm>

namespace {

constexpr std::chrono::seconds LONGEST_SLEEP{30};
constexpr std::time_t LONGEST_DAY = 25 * 3600 + 1; // seconds; the one on which the clock is put back

} // namespace

Schedule::Schedule(const std::vector<ScheduleEntry>& entries, Steady steady, std::time_t clock) {
    for (const ScheduleEntry& entry : entries) {
        Timer timer{entry, steady, 0};
        if (entry.m_Every) {
            timer.m_NextSpan += *entry.m_Every;
        } else {
            timer.m_NextTime = Moments::NextTimeOfDay(clock, entry.m_nTimeOfDay);
        }
        m_Timers.push_back(timer);
    }
}

std::vector<ScheduleEntry> Schedule::TakeDue(Steady steady, std::time_t clock) {
    std::vector<ScheduleEntry> due;
    for (Timer& timer : m_Timers) {
        if (timer.m_Entry.m_Every) {
            if (steady < timer.m_NextSpan) {
                continue;
            }
            // What was missed (the machine slept) is not made up for, and the beat is kept.
            const auto every = *timer.m_Entry.m_Every;
            timer.m_NextSpan += every * ((steady - timer.m_NextSpan) / every + 1);
            due.push_back(timer.m_Entry);
            continue;
        }
        if (clock >= timer.m_NextTime) {
            due.push_back(timer.m_Entry);
        } else if (timer.m_NextTime - clock <= LONGEST_DAY) {
            continue;
        }
        // Also when the clock was set back by more than a day: the entry would sleep too long.
        timer.m_NextTime = Moments::NextTimeOfDay(clock, timer.m_Entry.m_nTimeOfDay);
    }
    return due;
}

std::chrono::milliseconds Schedule::UntilNext(Steady steady, std::time_t clock) const {
    std::chrono::milliseconds wait = LONGEST_SLEEP;
    for (const Timer& timer : m_Timers) {
        const std::chrono::milliseconds left =
            timer.m_Entry.m_Every
                ? std::chrono::ceil<std::chrono::milliseconds>(timer.m_NextSpan - steady)
                : std::chrono::seconds(std::min<std::time_t>(timer.m_NextTime - clock, LONGEST_SLEEP.count()));
        wait = std::clamp(left, std::chrono::milliseconds(0), wait);
    }
    return wait;
}
