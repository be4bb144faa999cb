#pragma once

#include "base/Export.h"
#include "base/ResultCodes.h"

#include <pthread.h>

// One thread at a time: Begin, Wait, and again. The lifecycle operations belong to one thread.
class KVBASE_API EThread {
public:
    // `stackKiB`: stack size in KiB. `detached`: the thread is never waited for, and Wait returns at once.
    EThread(unsigned long stackKiB, bool detached);
    EThread(const EThread&) = delete;
    EThread& operator=(const EThread&) = delete;
    // Does not wait: a thread that still runs is left to itself.
    ~EThread();

    // Runs `function(parameter)` on a new thread. The thread takes no signals, so that the process's handlers run where
    // its owner expects them. The system shows the first 15 bytes of the name. RC_NOT_MADE when the system gives no
    // thread or one is still to be waited for.
    EResult Begin(void* (*function)(void*), void* parameter, const wchar_t* name);

    // Returns when the function has returned; at once when there is nothing to wait for.
    void Wait();

private:
    unsigned long m_nStackKiB;
    bool m_bDetached;
    bool m_bJoinable = false;
    pthread_t m_Thread{};
};
