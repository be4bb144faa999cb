#include "service/ELogFile.h"

#include "base/ELock.h"
#include "base/Guarded.h"
#include "intake/ELogInfo.h"

#include <array>
#include <memory>

void* ELogFile::LogFileThreadStub(void* service) {
    return reinterpret_cast<void*>(static_cast<ELogFile*>(service)->LogFileThread());
}

// The worker resets the event before it takes requests, and reporters set it after they have appended one: no request
// is missed.
//
// Finished requests are freed many at a time. Freed one by one, nearly every row would wait for the allocator's lock,
// and so would the reporters, which allocate requests at the same time.
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
            // No lock is held. A request for which memory runs out is lost; the thread goes on.
            Guarded([&] { return ProcessLogFile(taken[i].get()); });
        }
        taken = {};
    }
    return 1;
}
