#include "gateway/Run.h"

#include "gateway/Console.h"
#include "gateway/FlowControl.h"
#include "gateway/Gateway.h"
#include "gateway/JsonObject.h"
#include "gateway/LineReader.h"
#include "gateway/Text.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <stdexcept>
#include <system_error>

#include <poll.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::microseconds;
using std::chrono::milliseconds;

[[noreturn]] void Fail(const std::string& what) {
    throw std::system_error(errno, std::generic_category(), what);
}

// Makes the file the standard input.
void OpenInput(const std::string& name) {
    if (name != "-" && std::freopen(name.c_str(), "r", stdin) == nullptr) {
        Fail(name);
    }
}

// The signals that end the program, as a file that becomes readable. Before any thread is made: all of them take over
// that the signals are blocked.
int OpenSignals() {
    std::signal(SIGPIPE, SIG_IGN); // the reader of stderr may go, the logging goes on
    std::signal(SIGXFSZ, SIG_IGN); // a file too large for the system's limits is one that cannot be written
    sigset_t signals;
    sigemptyset(&signals);
    for (const int number : {SIGINT, SIGTERM}) {
        sigaddset(&signals, number);
    }
    struct sigaction hangUp {};
    sigaction(SIGHUP, nullptr, &hangUp);
    if (hangUp.sa_handler != SIG_IGN) { // nohup(1) ignores it; a blocked signal would come nevertheless
        sigaddset(&signals, SIGHUP);
    }
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    const int file = signalfd(-1, &signals, SFD_CLOEXEC);
    if (file < 0) {
        Fail("signals");
    }
    return file;
}

// Feeds the gateway.
class Runner {
public:
    // `signals` stays open as long as the program runs.
    Runner(Gateway& gateway, const Configuration& configuration, const RunOptions& options, int signals)
        : m_Gateway(gateway),
          m_Options(options),
          m_Flow([&gateway] { return gateway.CountWaiting(); }, Gateway::QUEUE_LIMIT, !options.m_bReportLive),
          m_Schedule(configuration.m_Schedule, Clock::now(), std::time(nullptr)),
          m_nSignals(signals) {
        struct stat state {};
        m_nInputSize = fstat(STDIN_FILENO, &state) == 0 && S_ISREG(state.st_mode) ? state.st_size : 0;
    }

    int Go() {
        while (!m_bStopped && !(m_Reader.AtEnd() && !m_bLine)) {
            Feed();
            ShowProgress();
            Wait();
        }
        if (m_bStopped) {
            FeedRest();
        } else {
            WaitForEmptyQueue();
        }
        Console::ShowProgress("");
        const bool saved = m_Gateway.End(m_bStopped);
        WaitForOutbox();
        Summarize();
        return !saved ? EXIT_NOT_DONE : m_nSkipped + Gateway::FailedWrites() > 0 ? EXIT_FOUND : EXIT_WELL;
    }

private:
    bool HasDue() { return m_Schedule.HasDue(Clock::now(), std::time(nullptr)); }

    // Hands over what there is, as long as there is room.
    void Feed() {
        while (HasDue() && m_Flow.HasRoom(Clock::now())) {
            const ScheduleEntry entry = m_Schedule.TakeDue();
            Report report = Report::MakeAction(entry.m_Action, entry.m_Log, Moments::Now(), "scheduled");
            if (std::string reason; !Hand(report, reason)) {
                Console::Say("schedule: " + entry.m_Action + " of " + entry.m_Log + ": " + reason);
            }
        }
        for (int i = 0; i < BATCH && TakeLine() && m_Flow.HasRoom(Clock::now()); ++i) {
            FeedLine();
        }
        TakeLine(); // one that is left lets nothing more be read
    }

    // Whether there is a line to feed, in m_Line. What is no report is dealt with here.
    bool TakeLine() {
        while (!m_bLine) {
            const LineReader::Result result = m_Reader.Take(m_Line);
            if (result == LineReader::Result::None) {
                return false;
            }
            if (result == LineReader::Result::TooLong) {
                Skip("longer than " + std::to_string(LineReader::MAX_LINE) + " bytes");
                continue;
            }
            m_bLine = m_Line.find_first_not_of(" \t\r") != std::string::npos;
        }
        return true;
    }

    void FeedLine() {
        m_bLine = false;
        std::string reason;
        if (!m_Report.Parse(m_Line, Moments::Now(), reason) || !Hand(m_Report, reason)) {
            Skip(reason);
        }
    }

    bool Hand(Report& report, std::string& reason) {
        const bool taken = m_Gateway.Hand(report, reason);
        if (taken) {
            m_Flow.Take();
        }
        return taken;
    }

    void Skip(const std::string& reason) {
        ++m_nSkipped;
        Console::Say("line " + std::to_string(m_Reader.LineNumber()) + ": " + reason);
    }

    // Until there is room, something to read, a signal or a scheduled action.
    void Wait() {
        const auto now = Clock::now();
        const bool wantsInput = !m_bLine && !m_Reader.AtEnd();
        const bool hasWork = m_bLine || HasDue();
        const microseconds wait = hasWork ? m_Flow.UntilRoom(now) : m_Schedule.UntilNext(now, std::time(nullptr));
        if (Sleep(m_Reader.AtEnd() && !hasWork ? microseconds(0) : wait, wantsInput)) {
            m_Reader.Read();
        }
    }

    // Sleeps, but no longer than to the first signal. True when the input can be read.
    bool Sleep(microseconds wait, bool forInput) {
        pollfd files[] = {{m_nSignals, POLLIN, 0}, {STDIN_FILENO, POLLIN, 0}};
        const timespec time{static_cast<time_t>(wait.count() / 1'000'000),
                            static_cast<long>(wait.count() % 1'000'000 * 1000)};
        if (ppoll(files, forInput ? 2 : 1, &time, nullptr) <= 0) {
            return false;
        }
        if (files[0].revents != 0) {
            signalfd_siginfo taken{};
            std::ignore = read(m_nSignals, &taken, sizeof taken);
            m_bStopped = true;
        }
        return files[1].revents != 0;
    }

    // What was read from a pipe would be lost with this process, and what stands in it, too, if its writer has gone.
    void FeedRest() {
        for (bool isLast = false;; isLast = true) {
            while ((TakeLine() || HasDue()) && !m_Flow.IsBlind(Clock::now())) {
                Feed();
                Sleep(m_Flow.UntilRoom(Clock::now()), false);
            }
            if (isLast || m_bLine || m_Reader.AtEnd() || !Sleep(microseconds(0), true)) {
                break;
            }
            m_Reader.Read();
        }
        if (m_bLine) {
            Console::Say("error: line " + std::to_string(m_Reader.LineNumber()) +
                         " and what was read behind it is lost");
        }
    }

    void WaitForEmptyQueue() {
        while (!m_bStopped && !m_Flow.IsEmpty(Clock::now())) {
            if (m_Flow.IsBlind(Clock::now())) {
                throw std::runtime_error("whether every row is written cannot be told");
            }
            Sleep(m_Flow.UntilLook(Clock::now()), false);
        }
    }

    // Only at the end of the input: a signal does not want to wait, and what is under way is sent after the next start.
    void WaitForOutbox() {
        const auto end = Clock::now() + std::chrono::seconds(10);
        for (Queue* const queue : m_Gateway.GetOutbox().Queues()) {
            while (!m_bStopped && Clock::now() < end && !queue->Drain(Clock::now() + milliseconds(100))) {
                Sleep(microseconds(0), false);
            }
        }
    }

    void ShowProgress() {
        constexpr std::uint64_t LONG_INPUT = 1000; // lines
        const auto now = Clock::now();
        if (m_Reader.LineNumber() < LONG_INPUT || now - m_LastProgress < milliseconds(250)) {
            return;
        }
        m_LastProgress = now;
        std::string text = std::to_string(m_Reader.LineNumber()) + " lines";
        if (m_nInputSize > 0) {
            const auto percent = 100 * m_Reader.BytesTaken() / static_cast<std::uint64_t>(m_nInputSize);
            text += " (" + std::to_string(percent) + "%)";
        }
        text += m_nSkipped > 0 ? ", " + std::to_string(m_nSkipped) + " skipped" : "";
        Console::ShowProgress(text);
    }

    void Summarize() {
        const Gateway::Counters& counters = m_Gateway.GetCounters();
        const auto line = [](const std::string& what, const std::string& text) {
            Console::Print("  " + what + ": " + text);
        };
        Console::Say(Plural(counters.m_nReports, "report") + ", " + Plural(m_nSkipped, "skipped line") + ", " +
                     Plural(m_Gateway.Messages(), "message") +
                     (m_Options.m_bReportLive ? "; without flow control some of the rows may have been dropped" : ""));
        for (const auto& [log, rows] : counters.m_Rows) {
            line(log, Plural(rows, "row"));
        }
        if (Gateway::FailedWrites() > 0) {
            line("rows that could not be written", std::to_string(Gateway::FailedWrites()));
        }
        if (counters.m_nSaved > 0) {
            line("saved for the next start", Plural(counters.m_nSaved, "request"));
        }
        if (counters.m_nDeliveries > 0) {
            line("deliveries asked for", std::to_string(counters.m_nDeliveries));
        }
        for (Queue* const queue : m_Gateway.GetOutbox().Queues()) {
            Console::Print("  " + queue->Summary());
        }
    }

    static constexpr int BATCH = 512; // lines between two looks at signals and schedules

    Gateway& m_Gateway;
    const RunOptions& m_Options;
    LineReader m_Reader{STDIN_FILENO};
    FlowControl m_Flow;
    Schedule m_Schedule;
    int m_nSignals;
    std::int64_t m_nInputSize = 0; // 0: not known
    std::string m_Line;
    Report m_Report;      // of the line; kept for its memory
    bool m_bLine = false; // m_Line waits to be fed
    bool m_bStopped = false;
    std::uint64_t m_nSkipped = 0;
    Clock::time_point m_LastProgress;
};

// Goes to the working directory and reads the configuration; false when it has errors.
bool Prepare(const RunOptions& options, Configuration& configuration) {
    const std::filesystem::path directory = std::filesystem::absolute(options.m_Configuration);
    if (!options.m_Directory.empty()) {
        std::filesystem::current_path(options.m_Directory);
    }
    Findings findings;
    configuration = Configuration::Load(directory, findings);
    for (const std::string& line : findings.Lines()) {
        Console::Print(line);
    }
    return !findings.HasErrors();
}

} // namespace

int Check(const RunOptions& options) {
    Configuration configuration;
    if (!Prepare(options, configuration)) {
        return EXIT_FOUND;
    }
    for (const LogFile& file : configuration.m_LogFiles) {
        std::printf("%s\n", file.Describe().c_str());
    }
    return EXIT_WELL;
}

int Run(const RunOptions& options) {
    OpenInput(options.m_Input);
    const std::filesystem::path directory = std::filesystem::absolute(options.m_Configuration);
    const std::filesystem::path module = std::filesystem::absolute(options.m_Module);
    Configuration configuration;
    if (!Prepare(options, configuration)) {
        Console::Say("the configuration is refused");
        return EXIT_NOT_DONE;
    }
    const int signals = OpenSignals();
    Gateway gateway(configuration, directory, module);
    return Runner(gateway, configuration, options, signals).Go();
}
