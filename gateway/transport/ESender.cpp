#include "gateway/transport/ESender.h"

#include <algorithm>
#include <set>
#include <stdexcept>

namespace {

using namespace std::chrono_literals;

constexpr auto PAUSE_LEAST = 100ms; // however small the configured ones are, a dead server is not asked all the time
constexpr auto LOOK_ANYWAY = 1h;    // no pause is over, and nobody has said that there is something new
constexpr unsigned long STACK_KIB = 1024;

} // namespace

ESender::ESender(const SpoolSettings& settings, std::string subject, Reporter report)
    : m_Spool(settings.m_Directory, settings.m_nLimit, [&](const std::string& line) { report(subject + ": " + line); }),
      m_Transfer(settings),
      m_PauseMin(std::max<std::chrono::milliseconds>(PAUSE_LEAST, std::chrono::seconds(settings.m_nRetryMin))),
      m_PauseMax(std::max<std::chrono::milliseconds>(m_PauseMin, std::chrono::seconds(settings.m_nRetryMax))),
      m_Subject(std::move(subject)),
      m_Report(std::move(report)),
      m_Thread(STACK_KIB, false) {}

void ESender::Start() {
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

bool ESender::Accept(const nlohmann::json& content,
                     const std::function<void(const std::filesystem::path& data)>& makeData, const std::string& what) {
    try {
        if (m_Spool.Add(content, makeData)) {
            // Under the mutex, so that the thread is not between looking for a job and waiting for one.
            const std::lock_guard lock(m_Mutex);
            m_Changed.notify_all();
            return true;
        }
        Report(what + " refused: the spool is full, " + std::to_string(m_Spool.Count()) + " waiting");
    } catch (const std::exception& error) {
        Report(what + " refused: the spool cannot be written: " + error.what());
    }
    ++m_nRefused;
    return false;
}

bool ESender::Drain(Clock::time_point end) {
    std::unique_lock lock(m_Mutex);
    if (!std::exchange(m_bHurried, true)) {
        for (auto& [of, pause] : m_Pauses) {
            pause.m_End = {};
        }
        m_Changed.notify_all();
    }
    m_Changed.wait_until(lock, end, [this] { return m_bStopping || m_Spool.Count() == 0; });
    return m_Spool.Count() == 0;
}

void* ESender::RunThread(void* sender) {
    static_cast<ESender*>(sender)->Run();
    return nullptr;
}

void ESender::Run() {
    std::unique_lock lock(m_Mutex);
    while (!m_bStopping) {
        auto wake = Clock::now() + LOOK_ANYWAY;
        const auto job = NextDue(wake);
        if (!job.has_value()) {
            m_Changed.wait_until(lock, wake);
            continue;
        }
        lock.unlock();
        Conclude(*job, TrySending(*job));
        lock.lock();
    }
}

// The oldest job whose turn it is; otherwise, in `wake`, the time when the next one's will be.
std::optional<ESpool::Job> ESender::NextDue(Clock::time_point& wake) {
    const auto now = Clock::now();
    std::set<std::pair<std::string, std::string>> held; // places and files that older jobs write, which have to wait
    for (const auto number : m_Spool.Numbers()) {
        auto job = m_Spool.Find(number);
        if (!job.has_value()) {
            continue;
        }
        const std::string place = PlaceOf(*job);
        const auto due = std::max(EndOfPause(place, 0), EndOfPause(place, number));
        const std::pair file(place, WrittenBy(*job));
        if (due <= now && !held.contains(file)) {
            return job;
        }
        if (due > now) {
            wake = std::min(wake, due);
        }
        if (!file.second.empty()) {
            held.insert(file);
        }
    }
    return std::nullopt;
}

ESender::Clock::time_point ESender::EndOfPause(const std::string& place, std::uint64_t number) const {
    const auto pause = m_Pauses.find({place, number});
    return pause == m_Pauses.end() ? Clock::time_point() : pause->second.m_End;
}

SendResult ESender::TrySending(const ESpool::Job& job) {
    SendResult result;
    try {
        result = Send(job, m_Transfer);
    } catch (const std::exception& error) {
        return {SendResult::Refused, error.what()};
    }
    if (result.m_Outcome != SendResult::Sent) {
        return result;
    }
    ++m_nSent;
    try {
        m_Spool.Remove(job.m_nNumber);
    } catch (const std::exception& error) {
        Report("sent, but not removed from the spool, so that it goes out again at the next start: " +
               std::string(error.what()));
    }
    return result;
}

// Counts the result of an attempt into the pauses, and reports what there is to say of it.
void ESender::Conclude(const ESpool::Job& job, const SendResult& result) {
    const std::string place = PlaceOf(job);
    const bool isSent = result.m_Outcome == SendResult::Sent;
    const bool isPlaceBad = result.m_Outcome == SendResult::Unreachable;
    std::string line;
    std::unique_lock lock(m_Mutex);
    if (isSent || result.m_Outcome == SendResult::Refused) {
        const bool wasBad = m_Pauses.erase({place, 0}) != 0;
        line = isSent && wasBad ? place + ": works again" : "";
    }
    if (isSent) {
        m_Pauses.erase({place, job.m_nNumber});
    } else if (result.m_Outcome != SendResult::Aborted) {
        Pause& pause = m_Pauses[{place, isPlaceBad ? 0 : job.m_nNumber}];
        pause.m_Length = std::clamp(pause.m_Length * 2, m_PauseMin, m_PauseMax);
        pause.m_End = Clock::now() + pause.m_Length;
        const auto seconds = std::chrono::ceil<std::chrono::seconds>(pause.m_Length).count();
        line = place + ": " + result.m_Text + (isPlaceBad ? "; " : "; job " + std::to_string(job.m_nNumber) + " is ") +
               "tried again in " + std::to_string(seconds) + " s, " + std::to_string(m_Spool.Count()) + " waiting";
    }
    m_Changed.notify_all();
    lock.unlock();
    if (!line.empty()) {
        Report(line);
    }
}
