#pragma once

#include "base/EMutexWrapper.h"
#include "base/ThreadSafety.h"

// A mutual-exclusion lock; the thread that holds it must not lock it again. The names serve a reader of the code and
// of a debugger only.
class KV_THREAD_SAFETY(capability("mutex")) KVBASE_API EMutex : public EMutexWrapper {
public:
    explicit EMutex(const wchar_t* name) : m_pszName(name) {}

    void Lock(const wchar_t* /*name*/) KV_THREAD_SAFETY(acquire_capability()) { m_Lock.lock(); }
    void Unlock(const wchar_t* /*name*/) KV_THREAD_SAFETY(release_capability()) { m_Lock.unlock(); }
    // Says that the caller holds it, where the analysis cannot see so: in a lambda. Does nothing.
    void AssertHeld() const KV_THREAD_SAFETY(assert_capability(this)) {}
    const wchar_t* GetName() const { return m_pszName; }

private:
    const wchar_t* m_pszName; // not owned; a literal
};
