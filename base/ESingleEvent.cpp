#include "base/ESingleEvent.h"

#include <chrono>

void ESingleEvent::Set() {
    if (m_bSet.exchange(true)) {
        return;
    }
    // A waiter may have read the flag and not sleep yet. It holds the lock until it sleeps.
    { const std::lock_guard<std::mutex> lock(m_Mutex); }
    m_Condition.notify_all();
}

void ESingleEvent::Reset() {
    m_bSet.store(false);
}

bool ESingleEvent::Wait(unsigned long milliseconds) {
    std::unique_lock<std::mutex> lock(m_Mutex);
    const auto isSet = [this] { return m_bSet.load(); };
    if (milliseconds >= WAIT_FOREVER) {
        m_Condition.wait(lock, isSet);
        return true;
    }
    return m_Condition.wait_for(lock, std::chrono::milliseconds(milliseconds), isSet);
}
