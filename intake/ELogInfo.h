#pragma once

#include "base/Contract.h"
#include "base/EONEVENTSTRUCT.h"

#include <cstdint>
#include <memory>

class EFileSpec;

// One request: an action on a log file, with its own copies of the records. It belongs to one thread at a time.
class ELogInfo {
public:
    // A new request with deep copies of `count` contiguous records; without records when `events` is null.
    ELogInfo(EFileSpec* spec, ActionType action, unsigned long count, const EONEVENTSTRUCT* events);
    // A restored request with `count` default records, for the caller to fill in.
    ELogInfo(EFileSpec* spec, ActionType action, unsigned long count);
    ELogInfo(const ELogInfo&) = delete;
    ELogInfo& operator=(const ELogInfo&) = delete;
    ~ELogInfo() = default;

    // The first record, or null when there is none.
    EONEVENTSTRUCT* FirstEvent() const { return m_nEventCount > 0 ? m_pEvents : nullptr; }

    EFileSpec* m_pFileSpec; // not owned; lives as long as the service
    ActionType m_Action;
    std::uint32_t m_nEventCount;
    EONEVENTSTRUCT* m_pEvents = nullptr; // m_nEventCount of them; null: made without records

private:
    void MakeRoom();

    EONEVENTSTRUCT m_Single; // most requests have one record, which needs no allocation here
    std::unique_ptr<EONEVENTSTRUCT[]> m_Several;
};
