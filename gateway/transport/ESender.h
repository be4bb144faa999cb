#pragma once

#include "base/EThread.h"
#include "gateway/transport/ESpool.h"
#include "gateway/transport/ETransfer.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <string>

// Sends the jobs of a spool on a thread of its own, oldest first, until each is done.
//
// A place that cannot be reached is left alone for a pause that grows with every failure. A job that did not get through
// by itself has its own pause, and younger jobs go on meanwhile, except those that write the same file at the same
// place: the last version is to stay there.
class ESender {
public:
    using Clock = std::chrono::steady_clock;

    // How the owner sends a job. It marks files as done by itself where they are sent one by one.
    struct Way {
        std::function<SendResult(const ESpool::Job& job, ETransfer& transfer)> m_Send; // on the thread
        std::function<std::string(const ESpool::Job& job)> m_Place; // where the job goes, to be shown
        std::function<std::vector<std::string>(const ESpool::Job& job)> m_Written = {}; // files it replaces there
    };

    // `subject` begins every report. Throws std::runtime_error when the spool cannot be used.
    ESender(const SpoolSettings& settings, std::string subject, Reporter report);
    ESender(const ESender&) = delete;
    ESender& operator=(const ESender&) = delete;
    ~ESender(); // stops first

    ESpool& Spool() { return m_Spool; }
    void Report(const std::string& line) const { m_Report(m_Subject + ": " + line); }

    void Start(Way way);
    void Stop(); // ends the running transfer; the job stays

    // Puts a job into the spool, which counts as `units`; false when that cannot be, which is reported with what it is.
    bool Accept(const nlohmann::json& content, const std::vector<ESpool::File>& files, const std::string& what,
                std::uint64_t units);

    // As ETransports::Drain. What is paused is tried again at once.
    bool Drain(std::chrono::milliseconds time);

    std::atomic<std::uint64_t> m_nAccepted = 0;
    std::atomic<std::uint64_t> m_nRefused = 0;
    std::atomic<std::uint64_t> m_nSent = 0; // counted by the owner

private:
    struct Pause {
        Clock::time_point m_End{};
        std::chrono::milliseconds m_Length{0};
    };

    static void* RunThread(void* sender);
    void Run();
    std::optional<ESpool::Job> NextDue(Clock::time_point& wake);
    SendResult TrySending(const ESpool::Job& job);
    void FinishJob(const ESpool::Job& job);
    std::string Conclude(const ESpool::Job& job, const SendResult& result);
    void Prolong(Pause& pause) const;

    std::chrono::milliseconds m_PauseMin;
    std::chrono::milliseconds m_PauseMax;
    std::string m_Subject;
    Reporter m_Report;
    ESpool m_Spool;
    ETransfer m_Transfer;
    Way m_Way;
    EThread m_Thread;

    std::mutex m_Mutex; // guards what follows; never held while sending or reporting
    std::condition_variable m_Changed;
    bool m_bStopping = false;
    std::map<std::string, Pause> m_Places;
    std::map<std::uint64_t, Pause> m_Jobs;
};
