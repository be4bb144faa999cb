#pragma once

#include "base/EThread.h"
#include "gateway/transport/ESpool.h"
#include "gateway/transport/ETransfer.h"
#include "gateway/transport/Transports.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <utility>

// Sends the jobs of a spool on a thread of its own, oldest first, until each is done. Derived classes say how.
//
// A place that cannot be reached is left alone for a pause that grows with every failure. A job that did not get through
// by itself has its own pause, and younger jobs go on meanwhile, except those that write the same file at the same
// place: the last version is to stay there.
class ESender {
public:
    using Clock = std::chrono::steady_clock;

    // `subject` begins every report. Throws std::runtime_error when the spool cannot be used.
    ESender(const SpoolSettings& settings, std::string subject, Reporter report);
    ESender(const ESender&) = delete;
    ESender& operator=(const ESender&) = delete;
    virtual ~ESender() = default;

    // Ends the running transfer, whose job stays, and the thread. Derived classes call it when they are freed.
    void Stop();

    // Waits until nothing is in the spool; false when the time comes before. The first call has what is paused tried
    // again at once; were it every call, one that waits in small steps would not leave a dead server alone.
    bool Drain(Clock::time_point end);

    TransportCounters Counters() const { return {m_Subject, m_nSent, m_Spool.Count(), m_nRefused}; }

protected:
    void Start(); // the last thing that a derived class does while it is made

    void Report(const std::string& line) const { m_Report(m_Subject + ": " + line); }

    // Puts a job into the spool, as ESpool::Add; false when that cannot be, which is reported with what it is.
    bool Accept(const nlohmann::json& content, const std::function<void(const std::filesystem::path& data)>& makeData,
                const std::string& what);

    // On the thread. Any std::exception means that the job did not get through.
    virtual SendResult Send(const ESpool::Job& job, ETransfer& transfer) = 0;
    virtual std::string PlaceOf(const ESpool::Job& job) const = 0;   // where it goes, to be shown
    virtual std::string WrittenBy(const ESpool::Job& job) const = 0; // the file that it replaces there; empty for none

private:
    struct Pause {
        Clock::time_point m_End{};
        std::chrono::milliseconds m_Length{0};
    };

    static void* RunThread(void* sender);
    void Run();
    std::optional<ESpool::Job> NextDue(Clock::time_point& wake);
    Clock::time_point EndOfPause(const std::string& place, std::uint64_t number) const;
    SendResult TrySending(const ESpool::Job& job);
    void Conclude(const ESpool::Job& job, const SendResult& result);

    ESpool m_Spool;
    ETransfer m_Transfer;
    std::chrono::milliseconds m_PauseMin;
    std::chrono::milliseconds m_PauseMax;
    std::string m_Subject;
    Reporter m_Report;
    EThread m_Thread;
    std::atomic<std::uint64_t> m_nSent = 0;
    std::atomic<std::uint64_t> m_nRefused = 0;

    std::mutex m_Mutex; // guards what follows; never held while sending or reporting
    std::condition_variable m_Changed;
    bool m_bStopping = false;
    bool m_bHurried = false;
    std::map<std::pair<std::string, std::uint64_t>, Pause> m_Pauses; // of a place (0), or a job's that goes there
};
