#include "gateway/FlowControl.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace {

constexpr std::chrono::microseconds SHORTEST_PAUSE{200};
constexpr std::chrono::microseconds LONGEST_PAUSE{50'000};
constexpr std::chrono::seconds BLIND_LIMIT{10};

} // namespace

FlowControl::FlowControl(std::function<std::optional<std::uint32_t>()> count, std::uint32_t limit, bool on)
    : m_Count(std::move(count)), m_nLimit(limit), m_bOn(on) {}

std::optional<std::uint32_t> FlowControl::Look(Steady now) {
    if (now < m_NextLook) {
        return std::nullopt;
    }
    const std::optional<std::uint32_t> waiting = m_Count();
    if (!waiting) {
        m_BlindSince = m_BlindSince.value_or(now);
        if (now - *m_BlindSince > BLIND_LIMIT) {
            throw std::runtime_error("the module's queue cannot be watched: its file in the configuration directory "
                                     "cannot be written");
        }
        m_NextLook = now + LONGEST_PAUSE;
        return std::nullopt;
    }
    m_BlindSince.reset();
    m_NextLook = now + m_Pause;
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
    if (*waiting > m_nLimit / 2) {
        if (m_Wait == m_Pause) {
            m_Pause = std::min(m_Pause * 5 / 4, LONGEST_PAUSE / 4);
        }
        m_Wait = std::min(m_Wait * 2, LONGEST_PAUSE); // a worker that stands still is not to be looked at all the time
        m_NextLook = now + m_Wait;
        return false;
    }
    if (*waiting == 0) {
        m_Pause = std::max(m_Pause * 3 / 4, SHORTEST_PAUSE);
    }
    m_Wait = m_Pause;
    m_NextLook = now + m_Wait;
    m_nRoom = m_nLimit - *waiting;
    return true;
}

bool FlowControl::IsEmpty(Steady now) {
    return Look(now) == 0U;
}

std::chrono::microseconds FlowControl::UntilRoom(Steady now) const {
    return !m_bOn || m_nRoom > 0 ? std::chrono::microseconds(0) : UntilLook(now);
}

std::chrono::microseconds FlowControl::UntilLook(Steady now) const {
    const auto left = std::chrono::ceil<std::chrono::microseconds>(m_NextLook - now);
    return std::clamp(left, std::chrono::microseconds(0), LONGEST_PAUSE);
}
