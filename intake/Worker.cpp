#include "service/ELogFile.h"

#include "base/ELock.h"
#include "base/Guarded.h"
#include "intake/ELogInfo.h"

#include <array>
#include <memory>

void* ELogFile::LogFileThreadStub(void* service) {
    return reinterpret_cast<void*>(static_cast<ELogFile*>(service)->LogFileThread());
}

// The event is reset before the queue is looked at, and reporters set it after they have appended: a request is either
// taken in this pass or wakes the next one.
//
// Finished requests are freed many at a time. Freed one by one, beside reporters that allocate theirs, both sides would
// wait for each other in the allocator at nearly every row.
unsigned long ELogFile::LogFileThread() {
    std::array<std::unique_ptr<ELogInfo>, 64> taken;
    while (m_bRunning) {
        m_WakeEvent.Wait(ESingleEvent::WAIT_FOREVER);
        m_WakeEvent.Reset();
        for (std::size_t i = 0; m_bRunning; ++i) {
            if (i == taken.size()) {
                taken = {};
                i = 0;
            }
            taken[i].reset(TakeRequest());
            if (taken[i] == nullptr) {
                break;
            }
            // Outside every lock. A request that memory does not suffice for is lost; the thread goes on.
            Guarded([&] { return ProcessLogFile(taken[i].get()); });
        }
        taken = {};
    }
    return 1;
}
