#include "gateway/FlowControl.h"

#include "gateway/Console.h"

#include <algorithm>
#include <utility>

using std::chrono::microseconds;
using std::chrono::nanoseconds;

namespace {

constexpr microseconds SHORTEST_PAUSE{200};
constexpr microseconds LONGEST_PAUSE{50'000};

} // namespace

FlowControl::FlowControl(std::function<std::optional<std::uint32_t>()> count, std::uint32_t limit, bool on)
    : m_Count(std::move(count)), m_nLimit(limit), m_bOn(on) {}

std::optional<std::uint32_t> FlowControl::Look(Steady now) {
    if (now < m_NextLook) {
        return std::nullopt;
    }
    const std::optional<std::uint32_t> waiting = m_Count();
    m_NextLook = now + (waiting ? TimeFor(*waiting) : LONGEST_PAUSE);
    if (waiting.has_value() == m_NoCountSince.has_value()) {
        m_NoCountSince = waiting ? std::nullopt : std::optional(now);
        Console::Say(waiting ? "goes on"
                             : "error: the list of what waits cannot be written in the configuration "
                               "directory; the input stands still until it can");
    }
    return waiting;
}

bool FlowControl::HasRoom(Steady now) {
    if (!m_bOn || m_nRoom > 0) {
        return true;
    }
    const std::optional<std::uint32_t> waiting = Look(now);
    if (!waiting) {
        return false;
    }
    // Looking at a long queue costs much, looking late leaves the worker without work.
    const std::uint32_t few = m_nLimit / 8;
    if (*waiting > 0) {
        m_PerRow = (now - m_LastLook) / std::max(m_nBefore - std::min(m_nBefore, *waiting), 1U);
    } else {
        m_PerRow /= 2; // it had time to spare
    }
    m_PerRow = std::clamp(m_PerRow, nanoseconds(SHORTEST_PAUSE) / m_nLimit, nanoseconds(LONGEST_PAUSE) / m_nLimit);
    m_nRoom = *waiting > m_nLimit / 2 ? 0 : m_nLimit - *waiting;
    m_nBefore = *waiting + m_nRoom;
    m_LastLook = now;
    m_NextLook = now + TimeFor(m_nBefore - few);
    return m_nRoom > 0;
}

nanoseconds FlowControl::TimeFor(std::uint32_t rows) const {
    return std::clamp<nanoseconds>(m_PerRow * rows, SHORTEST_PAUSE, LONGEST_PAUSE);
}

microseconds FlowControl::UntilRoom(Steady now) const {
    return !m_bOn || m_nRoom > 0 ? microseconds(0) : UntilLook(now);
}

microseconds FlowControl::UntilLook(Steady now) const {
    return std::clamp(std::chrono::ceil<microseconds>(m_NextLook - now), microseconds(0), LONGEST_PAUSE);
}
