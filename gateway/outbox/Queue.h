#pragma once

#include "gateway/outbox/DurableFiles.h"
#include "gateway/outbox/Settings.h"

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <set>
#include <thread>
#include <tuple>

// What a queue did since it was made; what an earlier run left counts when it is sent.
struct QueueCounters {
    std::string m_Subject;
    std::uint64_t m_nSent;
    std::uint64_t m_nWaiting;
};

// Entries that wait on disk until they are sent, and the thread that sends them, oldest first:
//
//     1795442556123456@7/a-0.csv    a file of identifier 7; without one the directory has no "@7"
//     1795442556123457.eml          a mail
//     part                          what is being accepted; removed at the next start
//
// The numbers are microseconds since 1970, and grow. An entry whose attempt fails has a pause of its own, and the next
// attempt takes another one. When attempts for different entries of one place fail in a row, the place has a pause, too.
// A place is a target, or this queue's disk: an entry that cannot be accepted at once waits in memory, and is tried again
// in the same way. Entries of the same name and identifier keep their order.
class Queue {
public:
    using Clock = std::chrono::steady_clock;
    using Make =
        std::function<void(const std::filesystem::path& file)>; // makes the file; may be called again when it throws
    using Notice = std::function<void()>;

    // Takes up what an earlier run left, and begins to send. `subject` begins every report. Throws std::exception.
    Queue(const std::string& subject, const std::filesystem::path& directory, const OutboxSettings& settings,
          const Reporter& report);
    Queue(const Queue&) = delete;
    Queue& operator=(const Queue&) = delete;
    ~Queue() { Stop(); }

    // Makes a file an entry; `name` is empty for a mail. The notice comes once, when the entry is safe on disk: inside the
    // call or later, on any thread. Any thread may call.
    void Accept(int identifier, const std::string& name, const Make& make, const Notice& notice);

    // Waits until nothing is left to be sent; false when the time comes before.
    bool Drain(Clock::time_point end);

    // Ends the running program, whose entry stays, and the thread. No notice comes afterwards.
    void Stop();

    QueueCounters Counters() const;

private:
    struct Entry {
        std::filesystem::path m_Path; // in the queue's directory
        std::filesystem::path m_File; // what is sent: the file in that directory, or the mail itself
        int m_nIdentifier = NO_IDENTIFIER;
        std::uint64_t m_nBytes = 0;
        Make m_Make{}; // null: accepted
        Notice m_Notice{};
        std::chrono::milliseconds m_Pause{0};
        Clock::time_point m_Due{};
    };
    struct Pause {
        std::uint64_t m_nLastFailed = 0; // 0: the last attempt succeeded
        std::chrono::milliseconds m_Length{0};
        Clock::time_point m_End{};
    };
    struct Place {
        std::set<std::pair<Clock::time_point, std::uint64_t>> m_Ready; // when they may be tried
        Pause m_Pause;
    };
    using Entries = std::map<std::uint64_t, Entry>;
    using Key = std::tuple<int, int, std::string>; // place, identifier, name

    void TakeUp(const std::filesystem::path& path);
    int PlaceOf(const Entry& entry) const;
    Key KeyOf(const Entry& entry) const;
    void Link(Entries::iterator entry);
    void Unlink(Entries::iterator entry);
    void Run();
    Entries::iterator NextDue(Clock::time_point& wake);
    std::optional<std::string> Attempt(Entry& entry);
    void Write(Entry& entry);
    void Send(const Entry& entry);
    Notice Conclude(Entries::iterator entry, const std::optional<std::string>& failure);
    void Postpone(Entries::iterator entry, const std::string& reason);
    void Erase(Entries::iterator entry);
    void HoldLimit();
    void Discard(const Entry& entry) const;
    void Report(const std::string& line) const { m_Report(m_Subject + ": " + line); }

    std::string m_Subject;
    std::filesystem::path m_Directory;
    OutboxSettings m_Settings;
    Reporter m_Report;
    std::optional<OpenFile> m_Lock;
    OpenFile m_Stop;                          // becomes readable
    std::map<std::string, unsigned> m_Copies; // of the thread: the next number of a name in a directory
    std::atomic<std::uint64_t> m_nSent = 0;

    std::mutex m_AcceptMutex; // guards m_nLast and "part"; taken before the other one
    std::uint64_t m_nLast = 0;

    mutable std::mutex m_Mutex; // guards what follows
    std::condition_variable m_Changed;
    bool m_bStopping = false;
    Entries m_Entries;
    std::uint64_t m_nBytes = 0;
    std::uint64_t m_nRunning = 0;
    std::map<Key, std::set<std::uint64_t>> m_Chains; // entries to be tried; only the first of each may be
    std::map<int, Place> m_Places;
    std::thread m_Thread;
};
