#pragma once

#include "base/Export.h"

#include <pthread.h>

// Holds the system's lock for EMutex, which is destroyed through it. It is held for short operations: who finds it taken
// tries again for a moment before he sleeps, which costs both sides a system call.
class KVBASE_API EMutexWrapper {
public:
    EMutexWrapper() = default;
    EMutexWrapper(const EMutexWrapper&) = delete;
    EMutexWrapper& operator=(const EMutexWrapper&) = delete;
    ~EMutexWrapper() { pthread_mutex_destroy(&m_Lock); }

protected:
    pthread_mutex_t m_Lock = PTHREAD_ADAPTIVE_MUTEX_INITIALIZER_NP;
};
