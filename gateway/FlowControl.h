#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>

// Keeps the module's queue from running over: it would drop what comes then, without a word.
//
// The queue is only looked at when it might be full: that costs the module a file with everything that waits, and the
// worker has to stand by. In between it is taken to be as long as if nothing had been written. When it is full, the next
// look comes when little is left of it, as fast as the worker was before.
class FlowControl {
public:
    using Steady = std::chrono::steady_clock::time_point;

    // `count` tells how many requests wait, or nothing when it cannot; `limit` is how many may wait. A switched off flow
    // control always has room.
    FlowControl(std::function<std::optional<std::uint32_t>()> count, std::uint32_t limit, bool on);

    bool HasRoom(Steady now);                            // whether a report may be handed over
    void Take() { m_nRoom -= m_nRoom > 0 ? 1 : 0; }      // a report was handed over
    bool IsEmpty(Steady now) { return Look(now) == 0U; } // whether nothing waits any more
    // Whether the queue has been out of sight for long, which is said when it begins. There is no room then.
    bool IsBlind(Steady now) const { return m_BlindSince && now - *m_BlindSince > BLIND_LIMIT; }

    // How long to do something else before HasRoom or IsEmpty can have another answer.
    std::chrono::microseconds UntilRoom(Steady now) const;
    std::chrono::microseconds UntilLook(Steady now) const;

private:
    static constexpr std::chrono::seconds BLIND_LIMIT{10};

    std::optional<std::uint32_t> Look(Steady now);
    std::chrono::nanoseconds TimeFor(std::uint32_t rows) const; // that the worker will take

    std::function<std::optional<std::uint32_t>()> m_Count;
    std::uint32_t m_nLimit;
    bool m_bOn;
    std::uint32_t m_nRoom = 0;
    std::uint32_t m_nBefore = 0;             // how many would wait if nothing had been written since the last look
    std::chrono::nanoseconds m_PerRow{8000}; // that the worker takes
    Steady m_LastLook;
    Steady m_NextLook;
    std::optional<Steady> m_BlindSince;
};
