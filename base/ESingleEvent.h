#pragma once

#include "base/Export.h"

#include <atomic>
#include <condition_variable>
#include <mutex>

// An event that stays set until Reset. Any thread may call any operation. Setting an event that is set already is one
// atomic exchange, and setting one that nobody waits for makes no system call.
class KVBASE_API ESingleEvent {
public:
    static constexpr unsigned long WAIT_FOREVER = 0xFFFFFFFFUL;

    void Set();
    void Reset();

    // Returns true once the event is set (at once when it is set already), false after `milliseconds`; from WAIT_FOREVER
    // on, which is seven weeks, never false.
    bool Wait(unsigned long milliseconds);

private:
    std::atomic<bool> m_bSet{false};
    std::mutex m_Mutex;
    std::condition_variable m_Condition;
};
