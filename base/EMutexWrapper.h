#pragma once

#include "base/Export.h"

#include <mutex>

// Holds the system's lock for EMutex, which is destroyed through it.
class KVBASE_API EMutexWrapper {
public:
    EMutexWrapper() = default;
    EMutexWrapper(const EMutexWrapper&) = delete;
    EMutexWrapper& operator=(const EMutexWrapper&) = delete;
    ~EMutexWrapper() = default;

protected:
    std::mutex m_Lock;
};
