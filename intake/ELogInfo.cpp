#include "intake/ELogInfo.h"

ELogInfo::ELogInfo(EFileSpec* spec, ActionType action, unsigned long count, const EONEVENTSTRUCT* events)
    : m_pFileSpec(spec), m_Action(action), m_nEventCount(events != nullptr ? static_cast<std::uint32_t>(count) : 0) {
    if (events == nullptr) {
        return;
    }
    MakeRoom();
    for (std::uint32_t i = 0; i < m_nEventCount; ++i) {
        m_pEvents[i] = EONEVENTSTRUCT(&events[i], true);
    }
}

ELogInfo::ELogInfo(EFileSpec* spec, ActionType action, unsigned long count)
    : m_pFileSpec(spec), m_Action(action), m_nEventCount(static_cast<std::uint32_t>(count)) {
    MakeRoom();
}

void ELogInfo::MakeRoom() {
    if (m_nEventCount == 1) {
        m_pEvents = &m_Single;
        return;
    }
    m_Several = std::make_unique<EONEVENTSTRUCT[]>(m_nEventCount);
    m_pEvents = m_Several.get();
}
