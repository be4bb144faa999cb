#include "base/EThread.h"

#include <gtest/gtest.h>

#include <csignal>

namespace {

void* LookAtSignals(void* blocked) {
    pthread_sigmask(SIG_BLOCK, nullptr, static_cast<sigset_t*>(blocked));
    return nullptr;
}

TEST(Thread, RunsOnceAtATimeWithoutSignals) {
    sigset_t blocked{};
    EThread thread(4096, false);
    EXPECT_EQ(thread.Begin(LookAtSignals, &blocked, L"Worker"), RC_OK);
    EXPECT_EQ(thread.Begin(LookAtSignals, &blocked, L"Another worker"), RC_NOT_MADE);
    thread.Wait();
    EXPECT_TRUE(sigismember(&blocked, SIGTERM));
    LookAtSignals(&blocked);
    EXPECT_FALSE(sigismember(&blocked, SIGTERM)) << "the starter takes its signals as before";
}

} // namespace
