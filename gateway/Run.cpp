#include "gateway/Run.h"

#include "gateway/Console.h"
#include "gateway/FlowControl.h"
#include "gateway/Gateway.h"
#include "gateway/JsonObject.h"
#include "gateway/LineReader.h"
#include "gateway/Moments.h"
#include "gateway/Text.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <stdexcept>
#include <system_error>

#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::microseconds;
using std::chrono::milliseconds;

// Makes the file the standard input.
void OpenInput(const std::string& name) {
    if (name != "-" && std::freopen(name.c_str(), "r", stdin) == nullptr) {
        throw std::system_error(errno, std::generic_category(), name);
    }
}

// Blocks the signals that end the program, and opens a signalfd(2) for them. To be called before any thread is made, which
// inherits the mask.
int OpenSignals() {
    std::signal(SIGPIPE, SIG_IGN); // the reader of stderr may go, the logging goes on
    std::signal(SIGXFSZ, SIG_IGN); // a file too large for the system's limits is one that cannot be written
    std::signal(SIGCHLD, SIG_DFL); // ignored, as a parent may leave it, how a program has ended is not told
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    struct sigaction hangUp {};
    sigaction(SIGHUP, nullptr, &hangUp);
    if (hangUp.sa_handler != SIG_IGN) { // nohup(1) ignores it; a blocked signal would come nevertheless
        sigaddset(&signals, SIGHUP);
    }
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    return signalfd(-1, &signals, SFD_CLOEXEC);
}

// Feeds the gateway.
class Runner {
public:
    // `signals` is a signalfd(2), and stays the caller's.
    Runner(Gateway& gateway, const RunOptions& options, int signals)
        : m_Gateway(gateway),
          m_Options(options),
          m_Flow([&gateway] { return gateway.CountWaiting(); }, QUEUE_LIMIT, !options.m_bReportLive),
          m_nSignals(signals) {}

    int Go() {
        while (!m_bStopped && !m_Reader.AtEnd()) {
            if (Sleep(std::chrono::hours(1), true)) {
                m_Reader.Read();
            }
            FeedLines();
        }
        if (!m_bLine && !m_Reader.AtEnd() && Sleep(microseconds(0), true)) { // a pipe's writer may have gone
            m_Reader.Read();
            FeedLines();
        }
        if (m_bLine) {
            Console::Say("error: line " + std::to_string(m_Reader.LineNumber()) +
                         " and what was read behind it is lost");
        }
        WaitForEmptyQueue();
        Console::ShowProgress("");
        const bool saved = m_Gateway.End(m_bStopped);
        WaitForOutbox();
        Summarize();
        return !saved ? EXIT_REFUSED : m_nSkipped + Gateway::FailedWrites() > 0 ? EXIT_SOME_FAILED : EXIT_OK;
    }

private:
    // Submits the lines that were read, as fast as there is room. A signal does not end this: the lines would be lost.
    void FeedLines() {
        while (TakeLine() && !(m_bStopped && m_Flow.IsCountMissing(Clock::now()))) {
            for (int i = 0; i < BATCH && TakeLine() && m_Flow.HasRoom(Clock::now()); ++i) {
                FeedLine();
            }
            ShowProgress();
            if (m_bLine) {
                Sleep(m_Flow.UntilRoom(Clock::now()), false);
            }
        }
    }

    // Takes the next line into m_Line unless one waits there; false when there is none. Skips empty and too long ones.
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
        if (m_Report.Parse(m_Line, Moments::Now(), reason) && m_Gateway.Submit(m_Report, reason)) {
            m_Flow.Take();
            ++m_nReports;
            ++m_ReportsByLog[m_Report.m_Kind == Report::Kind::Event ? KERNEL_LOG : m_Report.m_Log];
        } else {
            Skip(reason);
        }
    }

    void Skip(const std::string& reason) {
        ++m_nSkipped;
        Console::Say("line " + std::to_string(m_Reader.LineNumber()) + ": " + reason);
    }

    // Sleeps until the time is over, a signal comes or, `forInput`, the input can be read, which is true then.
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

    void WaitForEmptyQueue() {
        while (!m_bStopped && !m_Flow.IsEmpty(Clock::now())) {
            if (m_Flow.IsCountMissing(Clock::now())) {
                throw std::runtime_error("whether every row is written cannot be told");
            }
            Sleep(m_Flow.UntilLook(Clock::now()), false);
        }
    }

    // Only at the end of the input. After a signal nothing waits: what is left is sent after the next start.
    void WaitForOutbox() {
        const auto end = Clock::now() + std::chrono::seconds(10);
        for (Queue* const queue : m_Gateway.GetOutbox().Queues()) {
            while (!m_bStopped && Clock::now() < end && !queue->Drain(Clock::now() + milliseconds(100))) {
                Sleep(microseconds(0), false);
            }
        }
    }

    void ShowProgress() {
        constexpr std::int64_t LONG_INPUT = 1000; // lines
        const auto now = Clock::now();
        if (m_Reader.LineNumber() >= LONG_INPUT && now - m_LastProgress >= milliseconds(250)) {
            m_LastProgress = now;
            Console::ShowProgress(Plural(m_Reader.LineNumber(), "line") + ", " + std::to_string(m_nSkipped) +
                                  " skipped");
        }
    }

    void Summarize() {
        Console::Say(Plural(m_nReports, "report") + ", " + Plural(m_nSkipped, "skipped line") + ", " +
                     Plural(m_Gateway.Messages(), "message") +
                     (m_Options.m_bReportLive ? "; without flow control some of the rows may have been dropped" : ""));
        for (const auto& [log, reports] : m_ReportsByLog) {
            Console::Print("  " + log + ": " + Plural(reports, "report"));
        }
        if (Gateway::FailedWrites() > 0) {
            Console::Print("  rows that could not be written: " + std::to_string(Gateway::FailedWrites()));
        }
        for (Queue* const queue : m_Gateway.GetOutbox().Queues()) {
            Console::Print("  " + queue->Summary());
        }
    }

    static constexpr int BATCH = 512; // lines between two looks at the progress

    Gateway& m_Gateway;
    const RunOptions& m_Options;
    LineReader m_Reader{STDIN_FILENO};
    FlowControl m_Flow;
    int m_nSignals;
    std::string m_Line;
    Report m_Report;      // of the line; kept for its memory
    bool m_bLine = false; // m_Line waits to be fed
    bool m_bStopped = false;
    std::int64_t m_nReports = 0;
    std::int64_t m_nSkipped = 0;
    std::map<std::string, std::int64_t> m_ReportsByLog;
    Clock::time_point m_LastProgress;
};

// Changes to the working directory and reads the configuration; false when it has errors.
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
        return EXIT_SOME_FAILED;
    }
    for (const LogFileSettings& file : configuration.m_LogFiles) {
        std::printf("%s\n", file.Describe().c_str());
    }
    return EXIT_OK;
}

int Run(const RunOptions& options) {
    OpenInput(options.m_Input);
    const std::filesystem::path directory = std::filesystem::absolute(options.m_Configuration);
    const std::filesystem::path module = std::filesystem::absolute(options.m_Module);
    Configuration configuration;
    if (!Prepare(options, configuration)) {
        Console::Say("the configuration is refused");
        return EXIT_REFUSED;
    }
    const OpenFile signals(OpenSignals(), "signals");
    Gateway gateway(configuration, directory, module);
    return Runner(gateway, options, signals.Get()).Go();
}
