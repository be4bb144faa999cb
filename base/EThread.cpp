#include "base/EThread.h"

#include "base/EUtility.h"

#include <algorithm>
#include <climits>
#include <csignal>
#include <memory>
#include <string>

#include <utf8/checked.h>

namespace {

struct Begun {
    void* (*m_Function)(void*);
    void* m_pParameter;
    std::string m_Name;
};

void* Run(void* begun) {
    const std::unique_ptr<Begun> owned(static_cast<Begun*>(begun));
    pthread_setname_np(pthread_self(), owned->m_Name.c_str());
    return owned->m_Function(owned->m_pParameter);
}

// As much of the name as the system has room for, in whole characters.
std::string ShortName(const wchar_t* name) {
    const std::string bytes = Narrow(name).substr(0, 15);
    return {bytes.begin(), utf8::find_invalid(bytes.begin(), bytes.end())};
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
    auto begun = std::make_unique<Begun>(Begun{function, parameter, ShortName(name)});

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
    (void)begun.release(); // the thread owns it now
    m_bJoinable = !m_bDetached;
    return RC_OK;
}

void EThread::Wait() {
    if (m_bJoinable) {
        pthread_join(m_Thread, nullptr);
        m_bJoinable = false;
    }
}
