#include "base/ELock.h"
#include "base/ENotifyTrigger.h"
#include "base/ESingleEvent.h"
#include "base/EThread.h"
#include "base/ITriggerListener.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <functional>
#include <memory>
#include <string>
#include <thread>

namespace {

using Clock = std::chrono::steady_clock;

constexpr unsigned long LONG_MS = 10'000;

// Waits. A wake-up that was lost shows as a time-out, although the event is found set at its end.
bool Woken(ESingleEvent& event) {
    const auto start = Clock::now();
    return event.Wait(LONG_MS) && Clock::now() - start < std::chrono::milliseconds(LONG_MS / 2);
}

void* Call(void* function) {
    (*static_cast<std::function<void()>*>(function))();
    return nullptr;
}

// Runs a function on a thread of its own, until the destructor.
class Running {
public:
    explicit Running(std::function<void()> function) : m_Function(std::move(function)) {
        EXPECT_EQ(m_Thread.Begin(Call, &m_Function, L"test"), RC_OK);
    }
    ~Running() { m_Thread.Wait(); }

private:
    std::function<void()> m_Function;
    EThread m_Thread{4096, false};
};

TEST(Thread, RunsOnceAtATimeUnderItsNameWithoutSignals) {
    ESingleEvent release;
    char name[16] = {};
    sigset_t blocked;
    std::function<void()> look = [&] {
        pthread_getname_np(pthread_self(), name, sizeof name);
        pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
        release.Wait(LONG_MS);
    };
    EThread thread(4096, false);
    thread.Wait();
    for (const auto& [wide, shown] : {std::pair{L"LogFile", "LogFile"},
                                      {L"Log file worker thread", "Log file worker"},
                                      {L"Worker number \u00e4", "Worker number "},
                                      {L"", ""}}) {
        release.Reset();
        ASSERT_EQ(thread.Begin(Call, &look, wide), RC_OK);
        EXPECT_EQ(thread.Begin(Call, &look, wide), RC_NOT_MADE);
        release.Set();
        thread.Wait();
        EXPECT_STREQ(name, shown);
        for (const int number : {SIGTERM, SIGINT, SIGHUP, SIGUSR1, SIGCHLD, SIGALRM, SIGPIPE}) {
            EXPECT_EQ(sigismember(&blocked, number), 1) << number;
        }
    }
    pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
    EXPECT_EQ(sigismember(&blocked, SIGTERM), 0) << "the starter takes its signals as before";
}

TEST(SingleEvent, StaysSetUntilReset) {
    ESingleEvent event;
    const auto start = Clock::now();
    EXPECT_FALSE(event.Wait(0));
    EXPECT_FALSE(event.Wait(30));
    EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(30));
    event.Set();
    EXPECT_TRUE(event.Wait(ESingleEvent::WAIT_FOREVER));
    EXPECT_TRUE(event.Wait(0));
    event.Reset();
    EXPECT_FALSE(event.Wait(0));
}

TEST(SingleEvent, WakesEverybodyWhoWaits) {
    ESingleEvent event;
    const Running first([&event] { EXPECT_TRUE(Woken(event)); });
    const Running second([&event] { EXPECT_TRUE(Woken(event)); });
    EXPECT_FALSE(ESingleEvent().Wait(50)); // until they are asleep
    event.Set();
}

void Spin(int count) {
    for (std::atomic<int> left{count}; left > 0; --left) {
    }
}

// Both meet, and then set and wait with a distance that differs from round to round, so that the event is also set in
// the moment between the waiter's look at the flag and its falling asleep.
TEST(SingleEvent, HandsOverWithoutLosingAWakeUp) {
    constexpr int ROUNDS = 100'000;
    ESingleEvent event;
    std::atomic<int> asked{0};
    int given = 0; // no lock: only the event orders its accesses
    int taken = 0;
    {
        const Running taker([&] {
            for (asked = 1; taken < ROUNDS; asked = taken + 1) {
                Spin(30);
                if (!Woken(event) || given != taken + 1) {
                    break;
                }
                event.Reset();
                ++taken;
            }
            asked = ROUNDS;
        });
        for (int i = 1; i <= ROUNDS; ++i) {
            for (int looks = 0; asked < i; ++looks) {
                if (looks > 10'000) { // the other may need this processor
                    std::this_thread::yield();
                }
            }
            Spin(i % 60);
            ++given;
            event.Set();
        }
    }
    EXPECT_EQ(taken, ROUNDS);
}

TEST(SingleEvent, NothingOfABurstIsMissedByTheOneWhoResetsFirst) {
    constexpr int COUNT = 100'000;
    ESingleEvent event;
    std::atomic<int> produced{0};
    int seen = 0;
    {
        const Running worker([&] {
            while (seen < COUNT && Woken(event)) {
                event.Reset();
                seen = produced.load(std::memory_order_relaxed);
            }
        });
        for (int i = 0; i < COUNT; ++i) {
            produced.fetch_add(1, std::memory_order_relaxed);
            event.Set();
        }
    }
    EXPECT_EQ(seen, COUNT);
}

TEST(Mutex, ExcludesOtherThreads) {
    EMutex mutex(L"Unknown");
    long count = 0;
    {
        const auto add = [&mutex, &count] {
            for (int i = 0; i < 50'000; ++i) {
                const ELock lock(mutex, L"Unknown");
                ++count;
            }
        };
        const Running first(add);
        const Running second(add);
    }
    EXPECT_EQ(count, 100'000);
}

struct Listener final : ITriggerListener {
    EResult OnTrigger(unsigned long context, unsigned long value, void* data) override {
        m_Heard += std::to_string(context) + ':' + std::to_string(value) + ':' + *static_cast<std::string*>(data) + ' ';
        m_OnTrigger();
        return RC_NOT_PROVIDED;
    }
    std::string m_Heard;
    std::function<void()> m_OnTrigger = [] {};
};

TEST(NotifyTrigger, InformsThoseWhoseNameAndItemMatch) {
    ENotifyTrigger trigger;
    Listener listener;
    EString names[][2] = {
        {L"Delivered", L"Alarms"}, {L"Delivered", L""}, {L"", L"Alarms"}, {L"", L""}, {L"Full", L"Alarms"}};
    void* handles[5] = {};
    for (std::size_t i = 0; i < 5; ++i) {
        ASSERT_EQ(trigger.Subscribe(&listener, names[i][0], names[i][1], i, &handles[i]), RC_OK);
    }
    std::string data = "d";
    const auto heard = [&](const wchar_t* name, const wchar_t* item) {
        listener.m_Heard.clear();
        EXPECT_EQ(trigger.InformListeners(name, item, 9, &data), RC_OK);
        EXPECT_EQ(trigger.SubscribersFor(name, item), static_cast<EResult>(listener.m_Heard.size() / 6));
        return listener.m_Heard;
    };
    EXPECT_EQ(heard(L"Delivered", L"Alarms"), "0:9:d 1:9:d 2:9:d 3:9:d ");
    EXPECT_EQ(heard(L"Delivered", L"Events"), "1:9:d 3:9:d ");
    EXPECT_EQ(heard(L"Full", L"Alarms"), "2:9:d 3:9:d 4:9:d ");
    EXPECT_EQ(heard(L"full", nullptr), "3:9:d ");
    EXPECT_EQ(trigger.Unsubscribe(handles[1]), RC_OK);
    EXPECT_EQ(trigger.Unsubscribe(handles[1]), RC_NOT_FOUND);
    EXPECT_EQ(trigger.Unsubscribe(&listener, names[2][0], names[2][1]), RC_OK);
    EXPECT_EQ(heard(L"Delivered", L"Alarms"), "0:9:d 3:9:d ");
    EXPECT_EQ(trigger.FullyUnsubscribe(), RC_OK);
    EXPECT_EQ(heard(L"Delivered", L"Alarms"), "");
}

TEST(NotifyTrigger, AListenerMayUnsubscribeItselfAndFreeAnother) {
    ENotifyTrigger trigger;
    EString all;
    Listener first;
    auto second = std::make_unique<Listener>();
    Listener last;
    void* handles[3] = {};
    trigger.Subscribe(&first, all, all, 1, &handles[0]);
    trigger.Subscribe(second.get(), all, all, 2, &handles[1]);
    trigger.Subscribe(&last, all, all, 3, &handles[2]);
    first.m_OnTrigger = [&] {
        trigger.Unsubscribe(handles[0]);
        trigger.Unsubscribe(handles[1]);
        second.reset();
    };
    std::string data = "d";
    trigger.InformListeners(L"T", L"I", 4, &data);
    trigger.InformListeners(L"T", L"I", 5, &data);
    EXPECT_EQ(first.m_Heard, "1:4:d ");
    EXPECT_EQ(last.m_Heard, "3:4:d 3:5:d ");
}

} // namespace
