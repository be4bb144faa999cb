#pragma once

#include "base/Export.h"
#include "base/ResultCodes.h"

#include <pthread.h>

// Runs one thread at a time: Begin, Wait, and again. One thread calls these operations.
class KVBASE_API EThread {
public:
    // `stackKiB`: stack size in KiB. `detached`: the thread is never waited for, and Wait returns at once.
    EThread(unsigned long stackKiB, bool detached);
    EThread(const EThread&) = delete;
    EThread& operator=(const EThread&) = delete;
    // Does not wait: a thread that still runs is detached.
    ~EThread();

    // Runs `function(parameter)` on a new thread, which blocks all signals: the process's handlers run on its own
    // threads. The system shows the first 15 bytes of the name. RC_NOT_MADE when the system gives no thread, or when
    // Wait has not been called for the one before.
    EResult Begin(void* (*function)(void*), void* parameter, const wchar_t* name);

    // Returns when the function has returned; at once when there is nothing to wait for.
    void Wait();

private:
    unsigned long m_nStackKiB;
    bool m_bDetached;
    bool m_bJoinable = false;
    pthread_t m_Thread{};
};
