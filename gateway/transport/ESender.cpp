#include "gateway/transport/ESender.h"

#include <algorithm>
#include <stdexcept>

namespace {

using namespace std::chrono_literals;

constexpr auto PAUSE_LEAST = 100ms; // however small the configured ones are, a dead server is not asked all the time
constexpr unsigned long STACK_KIB = 1024;

std::string Seconds(std::chrono::milliseconds time) {
    return std::to_string(std::chrono::ceil<std::chrono::seconds>(time).count()) + " s";
}

} // namespace

ESender::ESender(const SpoolSettings& settings, std::string subject, Reporter report)
    : m_PauseMin(std::max<std::chrono::milliseconds>(PAUSE_LEAST, std::chrono::seconds(settings.m_nRetryMin))),
      m_PauseMax(std::max<std::chrono::milliseconds>(m_PauseMin, std::chrono::seconds(settings.m_nRetryMax))),
      m_Subject(std::move(subject)),
      m_Report(std::move(report)),
      m_Spool(settings.m_Directory, settings.m_nLimit, [this](const std::string& line) { Report(line); }),
      m_Transfer(settings),
      m_Thread(STACK_KIB, false) {}

ESender::~ESender() {
    Stop();
}

void ESender::Start(Way way) {
    m_Way = std::move(way);
    if (Failed(m_Thread.Begin(&ESender::RunThread, this, L"Sender"))) {
        throw std::runtime_error("no thread for sending");
    }
}

void ESender::Stop() {
    {
        const std::lock_guard lock(m_Mutex);
        m_bStopping = true;
    }
    m_Changed.notify_all();
    m_Transfer.Abort();
    m_Thread.Wait();
}

bool ESender::Accept(const nlohmann::json& content, const std::vector<ESpool::File>& files, const std::string& what,
                     std::uint64_t units) {
    try {
        if (m_Spool.Add(content, files)) {
            m_nAccepted += units;
            // Under the mutex, so that the thread is not between looking for a job and waiting for one.
            const std::lock_guard lock(m_Mutex);
            m_Changed.notify_all();
            return true;
        }
        Report(what + " refused: the spool is full, " + std::to_string(m_Spool.CountJobs()) + " waiting");
    } catch (const std::exception& error) {
        Report(what + " refused: the spool cannot be written: " + error.what());
    }
    m_nRefused += units;
    return false;
}

bool ESender::Drain(std::chrono::milliseconds time) {
    const auto end = Clock::now() + time;
    const auto numbers = m_Spool.Numbers();
    std::unique_lock lock(m_Mutex);
    for (auto& [place, pause] : m_Places) {
        pause.m_End = {};
    }
    for (auto& [number, pause] : m_Jobs) {
        pause.m_End = {};
    }
    m_Changed.notify_all();
    return m_Changed.wait_until(lock, end, [&] {
        return m_bStopping || std::none_of(numbers.begin(), numbers.end(),
                                           [this](auto number) { return m_Spool.Find(number).has_value(); });
    }) && m_Spool.CountJobs() == 0;
}

void* ESender::RunThread(void* sender) {
    static_cast<ESender*>(sender)->Run();
    return nullptr;
}

void ESender::Run() {
    std::unique_lock lock(m_Mutex);
    while (!m_bStopping) {
        auto wake = Clock::time_point::max();
        const auto job = NextDue(wake);
        if (!job.has_value()) {
            if (wake == Clock::time_point::max()) {
                m_Changed.wait(lock);
            } else {
                m_Changed.wait_until(lock, wake);
            }
            continue;
        }
        lock.unlock();
        const SendResult result = TrySending(*job);
        if (result.m_Outcome == SendResult::Sent) {
            FinishJob(*job);
        }
        lock.lock();
        const std::string line = Conclude(*job, result);
        m_Changed.notify_all();
        if (!line.empty()) {
            lock.unlock();
            Report(line);
            lock.lock();
        }
    }
}

// The oldest job whose turn it is; otherwise the time when the next one's will be.
std::optional<ESpool::Job> ESender::NextDue(Clock::time_point& wake) {
    const auto now = Clock::now();
    std::set<std::string> held; // written by older jobs that have to wait
    for (const auto number : m_Spool.Numbers()) {
        auto job = m_Spool.Find(number);
        if (!job.has_value()) {
            continue;
        }
        Clock::time_point due{};
        if (const auto place = m_Places.find(m_Way.m_Place(*job)); place != m_Places.end()) {
            due = place->second.m_End;
        }
        if (const auto own = m_Jobs.find(number); own != m_Jobs.end()) {
            due = std::max(due, own->second.m_End);
        }
        const auto written = m_Way.m_Written ? m_Way.m_Written(*job) : std::vector<std::string>();
        const bool isHeld =
            std::any_of(written.begin(), written.end(), [&](const std::string& file) { return held.contains(file); });
        if (due <= now && !isHeld) {
            return job;
        }
        if (due > now) {
            wake = std::min(wake, due);
        }
        held.insert(written.begin(), written.end());
    }
    return std::nullopt;
}

SendResult ESender::TrySending(const ESpool::Job& job) {
    try {
        return m_Way.m_Send(job, m_Transfer);
    } catch (const std::exception& error) {
        return {SendResult::Refused, error.what()};
    }
}

void ESender::FinishJob(const ESpool::Job& job) {
    try {
        m_Spool.JobDone(job.m_nNumber);
    } catch (const std::exception& error) {
        Report("sent, but not removed from the spool, so that it goes out again at the next start: " +
               std::string(error.what()));
    }
}

// Counts the result of an attempt into the pauses; what there is to say of it.
std::string ESender::Conclude(const ESpool::Job& job, const SendResult& result) {
    const std::string place = m_Way.m_Place(job);
    if (result.m_Outcome == SendResult::Aborted) {
        return {};
    }
    if (result.m_Outcome == SendResult::Sent) {
        m_Jobs.erase(job.m_nNumber);
        return m_Places.erase(place) != 0 ? place + ": works again" : std::string();
    }
    const bool ofPlace = result.m_Outcome == SendResult::Unreachable;
    if (!ofPlace) {
        m_Places.erase(place);
    }
    Pause& pause = ofPlace ? m_Places[place] : m_Jobs[job.m_nNumber];
    Prolong(pause);
    return place + ": " + result.m_Text + "; " + (ofPlace ? "" : "job " + std::to_string(job.m_nNumber) + " is ") +
           "tried again in " + Seconds(pause.m_Length) + ", " + std::to_string(m_Spool.CountJobs()) + " waiting";
}

void ESender::Prolong(Pause& pause) const {
    pause.m_Length = std::clamp(pause.m_Length * 2, m_PauseMin, m_PauseMax);
    pause.m_End = Clock::now() + pause.m_Length;
}
