#pragma once

#include "base/EMutex.h"

// Holds a mutex from construction to destruction.
class ELock {
public:
    ELock(EMutex& mutex, const wchar_t* name) : m_Mutex(mutex), m_pszName(name) { m_Mutex.Lock(m_pszName); }
    ~ELock() { m_Mutex.Unlock(m_pszName); }
    ELock(const ELock&) = delete;
    ELock& operator=(const ELock&) = delete;

private:
    EMutex& m_Mutex;
    const wchar_t* m_pszName;
};
