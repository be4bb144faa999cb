#pragma once

#include "base/EMutexWrapper.h"
#include "base/ThreadSafety.h"

// A mutual-exclusion lock, not recursive. The names are ignored.
class KV_THREAD_SAFETY(capability("mutex")) KVBASE_API EMutex : public EMutexWrapper {
public:
    explicit EMutex(const wchar_t* /*name*/) {}

    void Lock(const wchar_t* /*name*/) KV_THREAD_SAFETY(acquire_capability()) { m_Lock.lock(); }
    void Unlock(const wchar_t* /*name*/) KV_THREAD_SAFETY(release_capability()) { m_Lock.unlock(); }
    // Tells the compiler's analysis that the caller holds the lock, where it cannot see it: in a lambda. Does nothing.
    void AssertHeld() const KV_THREAD_SAFETY(assert_capability(this)) {}
};
