#pragma once

#include "base/EMutex.h"

// Holds a mutex from construction to destruction.
class KV_THREAD_SAFETY(scoped_lockable) ELock {
public:
    ELock(EMutex& mutex, const wchar_t* name) KV_THREAD_SAFETY(acquire_capability(mutex))
        : m_Mutex(mutex), m_pszName(name) {
        m_Mutex.Lock(m_pszName);
    }
    ~ELock() KV_THREAD_SAFETY(release_capability()) { m_Mutex.Unlock(m_pszName); }
    ELock(const ELock&) = delete;
    ELock& operator=(const ELock&) = delete;

private:
    EMutex& m_Mutex;
    const wchar_t* m_pszName;
};
