#include "service/ELogFile.h"

#include "base/CDataValue.h"
#include "base/EONEVENTSTRUCT.h"
#include "base/EPRNG.h"
#include "intake/ELogInfo.h"

#include <memory>

void ELogFile::PushLogInfo(ELogInfo* info) {
    std::unique_ptr<ELogInfo> request(info);
    if (m_LogQueue.GetCount() < QUEUE_LIMIT) {
        m_LogQueue.AddTail(request.get());
        (void)request.release();
    }
}

// Two requests, if there are, for the reporter to free outside the lock. Memory that goes back where it came from is at
// hand for the next report; freed by the worker, it would make both threads wait for each other in the allocator. Two for
// every one that is made: there are never more of them than have waited at once.
std::unique_ptr<ELogInfo> ELogFile::TakeSpent() {
    std::unique_ptr<ELogInfo> taken = std::move(m_pSpent);
    if (ELogInfo* const last = taken != nullptr && taken->m_pNext != nullptr ? taken->m_pNext.get() : taken.get()) {
        m_pSpent = std::move(last->m_pNext);
    }
    return taken;
}

std::uint32_t ELogFile::GetDeliveryId() {
    return EPRNG::GetInt32();
}

ETimeStamp ELogFile::GetEventTimeStamp(const EONEVENTSTRUCT* record, const CDataValue* value) {
    return record->m_TimeStamp.IsSet() ? record->m_TimeStamp : value->GetTimestamp();
}
