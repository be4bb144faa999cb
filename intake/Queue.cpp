#include "service/ELogFile.h"

#include "base/ELock.h"
#include "intake/ELogInfo.h"

#include <memory>

void ELogFile::PushLogInfo(ELogInfo* info) {
    std::unique_ptr<ELogInfo> request(info);
    if (m_LogQueue.GetCount() < QUEUE_LIMIT) {
        m_LogQueue.AddTail(request.get());
        (void)request.release();
    }
}

// Removes the oldest request, which the caller then owns; null when the queue is empty.
ELogInfo* ELogFile::TakeRequest() {
    const ELock lock(m_QueueMutex, MUTEX_NAME);
    return static_cast<ELogInfo*>(m_LogQueue.RemoveHead());
}
