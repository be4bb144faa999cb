#include "service/ELogFile.h"

#include "base/ELock.h"
#include "base/Guarded.h"
#include "intake/ELogInfo.h"

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
        while (m_bRunning) {
            const std::unique_ptr<ELogInfo> request(TakeRequest());
            if (request == nullptr) {
                break;
            }
            // Outside every lock. A request that memory does not suffice for is lost; the thread goes on.
            Guarded([&] { return ProcessLogFile(request.get()); });
        }
    }
    return 1;
}
