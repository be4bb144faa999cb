#pragma once

#include "base/Export.h"

#include <atomic>
#include <condition_variable>
#include <mutex>

// An event that stays set until Reset. Any thread may call any operation. Setting an event that is already set is one
// atomic exchange; setting one that nobody waits for makes no system call.
class KVBASE_API ESingleEvent {
public:
    static constexpr unsigned long WAIT_FOREVER = 0xFFFFFFFFUL;

    void Set();
    void Reset();

    // Waits until the event is set, and returns true; false when `milliseconds` pass first. WAIT_FOREVER and more have
    // no time limit.
    bool Wait(unsigned long milliseconds);

private:
    std::atomic<bool> m_bSet{false};
    std::mutex m_Mutex;
    std::condition_variable m_Condition;
};
