#pragma once

#include "gateway/Platform.h"
#include "gateway/outbox/Settings.h"

#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

// Entries that wait on disk until they are sent, and the thread that sends them, oldest first:
//
//     1795442556123456@7/a-0.csv    a file of identifier 7; without one the directory has no "@7"
//     1795442556123457.eml          a mail
//     part                          what is being accepted; removed at the next start
//
// The numbers are microseconds since 1970, and grow. An entry that fails gets a pause of its own, and the next attempt
// takes another entry. When two different entries of one place fail one after the other, the place gets a pause as well.
// A place is a target, or the disk of this queue: an entry that the disk cannot take waits in memory, and writing it is
// tried again after the same pauses. Entries of one name and identifier keep their order.
class Queue {
public:
    using Clock = std::chrono::steady_clock;
    using Make = std::function<void(const std::filesystem::path& file)>; // throws when it cannot; is then called again
    using Notice = std::function<void()>;

    // Takes up what an earlier run left, and begins to send. `subject` begins every report. Throws std::exception.
    Queue(std::string subject, const std::filesystem::path& directory, OutboxSettings settings);
    ~Queue() { Stop(); }

    // Makes a file an entry; a mail has no `name`. The notice comes once, when the entry is safe on disk: inside the call,
    // or later on the queue's thread. Any thread may call.
    void Accept(int identifier, const std::string& name, Make make, Notice notice);

    bool Drain(Clock::time_point end); // waits until nothing is left to be sent; false when `end` comes first
    void Stop();                       // ends the running program, whose entry stays, and the thread
    std::string Summary();             // what was sent, and what waits

private:
    struct Pause {
        std::chrono::milliseconds m_Length{0};
        Clock::time_point m_End{};
    };
    struct Entry {
        std::filesystem::path m_File;
        int m_nIdentifier;
        std::uint64_t m_nBytes;
        Make m_Make; // none: it is accepted
        Notice m_Notice;
        Pause m_Pause{};
    };
    struct Place {
        Pause m_Pause{};
        std::uint64_t m_nLastFailed = 0; // 0: the last attempt succeeded
    };
    using Entries = std::map<std::uint64_t, Entry>; // by number

    void TakeUp(const std::filesystem::path& path);
    std::filesystem::path PathOf(const Entry& entry) const; // in the queue's directory
    int PlaceOf(const Entry& entry) const;
    bool IsWaiting(const Entry& entry) const; // false when its target is none: it stays here
    void Run();
    Entries::iterator NextDue(Clock::time_point& wake);
    void Step(Entries::iterator entry, std::unique_lock<std::mutex>& lock);
    void Write(Entry& entry);
    void Send(const Entry& entry);
    void Postpone(Entries::iterator entry, const std::string& reason);
    void HoldLimit();
    void Remove(Entries::iterator entry);
    void Report(const std::string& line) const;

    const std::string m_Subject;
    const std::filesystem::path m_Directory;
    const OutboxSettings m_Settings;
    const OpenFile m_Lock;
    const OpenFile m_StopEvent;               // becomes readable
    std::map<std::string, unsigned> m_Copies; // of the thread: the next number of a name in a directory

    std::mutex m_Mutex; // guards what follows; not held while something is sent
    std::condition_variable m_Changed;
    bool m_bStopping = false;
    Entries m_Entries;
    std::uint64_t m_nLast = 0; // number
    std::uint64_t m_nBytes = 0;
    std::uint64_t m_nUnaccepted = 0;
    std::uint64_t m_nSent = 0;
    std::uint64_t m_nRunning = 0; // number of what is being sent
    std::map<int, Place> m_Places;
    std::thread m_Thread;
};
