#include "base/EThread.h"

#include "base/EUtility.h"

#include <algorithm>
#include <climits>
#include <csignal>
#include <memory>

namespace {

struct Begun {
    void* (*m_Function)(void*);
    void* m_pParameter;
    char m_Name[16]; // what the system has room for, with its end
};

void* Run(void* begun) {
    const std::unique_ptr<Begun> owned(static_cast<Begun*>(begun));
    pthread_setname_np(pthread_self(), owned->m_Name);
    return owned->m_Function(owned->m_pParameter);
}

void CopyName(const wchar_t* name, char* out, std::size_t room) {
    std::size_t length = 0;
    for (; name != nullptr && *name != L'\0'; ++name) {
        unsigned char bytes[4];
        const std::size_t count = EUtility::Utf8EncodeCharacter(*name, bytes);
        if (length + count >= room) {
            break;
        }
        std::copy_n(bytes, count, out + length);
        length += count;
    }
    out[length] = '\0';
}

} // namespace

EThread::EThread(unsigned long stackKiB, bool detached) : m_nStackKiB(stackKiB), m_bDetached(detached) {}

EThread::~EThread() {
    if (m_bJoinable) {
        pthread_detach(m_Thread);
    }
}

EResult EThread::Begin(void* (*function)(void*), void* parameter, const wchar_t* name) {
    if (m_bJoinable) {
        return RC_NOT_MADE;
    }
    auto begun = std::make_unique<Begun>(Begun{function, parameter, {}});
    CopyName(name, begun->m_Name, sizeof begun->m_Name);

    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, std::max<std::size_t>(m_nStackKiB * 1024, PTHREAD_STACK_MIN));
    pthread_attr_setdetachstate(&attributes, m_bDetached ? PTHREAD_CREATE_DETACHED : PTHREAD_CREATE_JOINABLE);

    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before); // inherited by the new thread
    const int failure = pthread_create(&m_Thread, &attributes, Run, begun.get());
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    pthread_attr_destroy(&attributes);
    if (failure != 0) {
        return RC_NOT_MADE;
    }
    (void)begun.release(); // the thread's from here on
    m_bJoinable = !m_bDetached;
    return RC_OK;
}

void EThread::Wait() {
    if (m_bJoinable) {
        pthread_join(m_Thread, nullptr);
        m_bJoinable = false;
    }
}
