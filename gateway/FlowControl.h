#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>

// Keeps the module's queue from running over: it would drop what comes then, without a word.
//
// Counting what waits is expensive: the module writes a file of it, and the worker stands still meanwhile. So the next
// count comes only when the room that the last one found is used up, and not before the worker should have written most
// of the queue, at the speed that it had before.
class FlowControl {
public:
    using Steady = std::chrono::steady_clock::time_point;

    // `count` tells how many requests wait, or nothing when it cannot; `limit` is how many may wait. A switched off flow
    // control always has room.
    FlowControl(std::function<std::optional<std::uint32_t>()> count, std::uint32_t limit, bool on);

    bool HasRoom(Steady now);                            // whether a report may be submitted
    void Take() { m_nRoom -= m_nRoom > 0 ? 1 : 0; }      // a report was submitted
    bool IsEmpty(Steady now) { return Look(now) == 0U; } // whether nothing waits any more
    // Whether counting has failed for long, which is said when it begins. There is no room then.
    bool IsCountMissing(Steady now) const { return m_NoCountSince && now - *m_NoCountSince > LONGEST_WITHOUT; }

    // How long to do something else before HasRoom or IsEmpty can have another answer.
    std::chrono::microseconds UntilRoom(Steady now) const;
    std::chrono::microseconds UntilLook(Steady now) const;

private:
    static constexpr std::chrono::seconds LONGEST_WITHOUT{10};

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
    std::optional<Steady> m_NoCountSince;
};
