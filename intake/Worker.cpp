#include "service/ELogFile.h"

#include "base/ELock.h"
#include "intake/ELogInfo.h"
#include "service/Guarded.h"

#include <memory>

void* ELogFile::LogFileThreadStub(void* service) {
    return reinterpret_cast<void*>(static_cast<ELogFile*>(service)->LogFileThread());
}

// The event is reset before the queue is looked at, and reporters set it after they have appended: a request is either
// taken in this pass or wakes the next one.
unsigned long ELogFile::LogFileThread() {
    while (m_bRunning) {
        m_WakeEvent.Wait(ESingleEvent::WAIT_FOREVER);
        m_WakeEvent.Reset();
        std::unique_ptr<ELogInfo> request;
        while (m_bRunning && (request = TakeRequest(std::move(request))) != nullptr) {
            // Outside every lock. A request that memory does not suffice for is lost; the thread goes on.
            Guarded([&] { return ProcessLogFile(request.get()); });
        }
    }
    return 1;
}

// The oldest request; null when none waits. The one before it is left to the reporters.
std::unique_ptr<ELogInfo> ELogFile::TakeRequest(std::unique_ptr<ELogInfo> spent) {
    const ELock lock(m_QueueMutex, MUTEX_NAME);
    if (spent != nullptr) {
        spent->m_pNext = std::move(m_pSpent);
        m_pSpent = std::move(spent);
    }
    return std::unique_ptr<ELogInfo>(static_cast<ELogInfo*>(m_LogQueue.RemoveHead()));
}
