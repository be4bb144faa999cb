#pragma once

#include "base/EMutexWrapper.h"

// A mutual-exclusion lock; the thread that holds it must not lock it again. The names serve a reader of the code and
// of a debugger only.
class KVBASE_API EMutex : public EMutexWrapper {
public:
    explicit EMutex(const wchar_t* name) : m_pszName(name) {}

    void Lock(const wchar_t* /*name*/) { pthread_mutex_lock(&m_Lock); }
    void Unlock(const wchar_t* /*name*/) { pthread_mutex_unlock(&m_Lock); }
    const wchar_t* GetName() const { return m_pszName; }

private:
    const wchar_t* m_pszName; // not owned; a literal
};
