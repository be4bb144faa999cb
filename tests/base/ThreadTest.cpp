#include "base/ESingleEvent.h"
#include "base/EThread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <functional>
#include <thread>

namespace {

void* Call(void* function) {
    (*static_cast<std::function<void()>*>(function))();
    return nullptr;
}

TEST(Thread, RunsOnceAtATimeUnderItsNameWithoutSignals) {
    ESingleEvent release;
    char name[16] = {};
    sigset_t blocked;
    std::function<void()> look = [&] {
        pthread_getname_np(pthread_self(), name, sizeof name);
        pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
        release.Wait(10'000);
    };
    EThread thread(4096, false);
    for (int run = 0; run < 2; ++run) {
        release.Reset();
        ASSERT_EQ(thread.Begin(Call, &look, L"Worker number \u00e4"), RC_OK);
        EXPECT_EQ(thread.Begin(Call, &look, L"Worker number \u00e4"), RC_NOT_MADE);
        release.Set();
        thread.Wait();
        EXPECT_STREQ(name, "Worker number ") << "as much as there is room for";
        EXPECT_TRUE(sigismember(&blocked, SIGTERM) && sigismember(&blocked, SIGHUP) && sigismember(&blocked, SIGCHLD));
    }
    pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
    EXPECT_EQ(sigismember(&blocked, SIGTERM), 0) << "the starter takes its signals as before";
}

// The distance between both differs from round to round, so that the event is also set in the moment between the
// waiter's look at it and its falling asleep. A wake-up that is lost there is waited for until the test is ended.
TEST(SingleEvent, HandsOverWithoutLosingAWakeUp) {
    constexpr int ROUNDS = 100'000;
    ESingleEvent event;
    std::atomic<int> asked{1};
    int given = 0; // no lock: only the event orders its accesses
    int taken = 0;
    std::thread taker([&] {
        // All 32 bits, or all that an unsigned long has.
        for (; taken < ROUNDS && event.Wait(taken % 2 == 0 ? ESingleEvent::WAIT_FOREVER : ~0UL) && given == taken + 1;
             asked = taken + 1) {
            event.Reset();
            ++taken;
        }
        asked = ROUNDS;
    });
    for (int i = 1; i <= ROUNDS; ++i) {
        while (asked < i) {
            std::this_thread::yield();
        }
        for (std::atomic<int> distance{i % 100}; distance > 0; --distance) {
        }
        ++given;
        event.Set();
    }
    taker.join();
    EXPECT_EQ(taken, ROUNDS);
}

} // namespace
