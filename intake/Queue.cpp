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

std::uint32_t ELogFile::GetDeliveryId() {
    return EPRNG::GetInt32();
}

ETimeStamp ELogFile::GetEventTimeStamp(const EONEVENTSTRUCT* record, const CDataValue* value) {
    return record->m_TimeStamp.IsSet() ? record->m_TimeStamp : value->GetTimestamp();
}
