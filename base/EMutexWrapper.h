#pragma once

#include "base/Export.h"

#include <mutex>

// The base of EMutex, which holds the lock.
class KVBASE_API EMutexWrapper {
public:
    EMutexWrapper() = default;
    EMutexWrapper(const EMutexWrapper&) = delete;
    EMutexWrapper& operator=(const EMutexWrapper&) = delete;
    ~EMutexWrapper() = default;

protected:
    std::mutex m_Lock;
};
