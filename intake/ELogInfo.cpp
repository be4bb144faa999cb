#include "intake/ELogInfo.h"

ELogInfo::ELogInfo(EFileSpec* spec, ActionType action, unsigned long count, const EONEVENTSTRUCT* events)
    : m_pFileSpec(spec),
      m_Action(action),
      m_nEventCount(events != nullptr ? static_cast<std::uint32_t>(count) : 0) {
    if (events == nullptr) {
        return;
    }
    m_ppEvents = std::make_unique<std::unique_ptr<EONEVENTSTRUCT>[]>(m_nEventCount);
    for (std::uint32_t i = 0; i < m_nEventCount; ++i) {
        m_ppEvents[i] = std::make_unique<EONEVENTSTRUCT>(&events[i], true);
    }
}

ELogInfo::ELogInfo(EFileSpec* spec, ActionType action, unsigned long count)
    : m_pFileSpec(spec),
      m_Action(action),
      m_nEventCount(static_cast<std::uint32_t>(count)),
      m_ppEvents(std::make_unique<std::unique_ptr<EONEVENTSTRUCT>[]>(m_nEventCount)) {
    for (std::uint32_t i = 0; i < m_nEventCount; ++i) {
        m_ppEvents[i] = std::make_unique<EONEVENTSTRUCT>();
    }
}
