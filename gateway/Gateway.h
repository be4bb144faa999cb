#pragma once

#include "gateway/Kernel.h"
#include "gateway/Module.h"
#include "gateway/Report.h"
#include "gateway/WorkDirectory.h"
#include "gateway/outbox/Outbox.h"

// The running module with its kernel and outbox. One thread.
class Gateway {
public:
    // Takes the module through its start, with the requests that an earlier stop has saved. Throws std::runtime_error.
    Gateway(const Configuration& configuration, const std::filesystem::path& directory,
            const std::filesystem::path& module);
    ~Gateway();

    // False, and the reason, when the module does not take the report.
    bool Submit(Report& report, std::string& reason);

    // How many requests wait; nothing when that cannot be told. Costs a file as large as they are.
    std::optional<std::uint32_t> CountWaiting();

    // Ends the worker after the request that it is at. With `save`, what still waits is saved for the next start;
    // otherwise it is dropped. False, which is said, when it could not be saved.
    bool End(bool save);

    Outbox& GetOutbox() { return m_Outbox; }

    struct Counters {
        std::uint64_t m_nReports = 0;
        std::uint64_t m_nDeliveries = 0;            // asked for
        std::uint64_t m_nSaved = 0;                 // requests for the next one
        std::map<std::string, std::int64_t> m_Rows; // by log file
    };
    const Counters& GetCounters() const { return m_Counters; }
    static std::uint64_t FailedWrites(); // of log files, so far; each is a row that is lost
    int Messages() const { return m_Kernel.Messages(); }

private:
    void Start();
    void StartWithSavedRequests();
    EResult Submit(Report& report);
    void Count(const Report& report);
    void CountRow(const std::string& action, const std::string& log, int rows); // if the action writes one

    const Configuration& m_Configuration;
    std::filesystem::path m_Directory; // of the configuration, absolute
    WorkDirectory m_Work;
    Outbox m_Outbox;
    Kernel m_Kernel;
    Module m_Module;
    // No notice may come to a service that is about to go: this ends before it.
    const std::unique_ptr<Outbox, void (*)(Outbox*)> m_Stopper{&m_Outbox, [](Outbox* outbox) { outbox->Stop(); }};
    std::filesystem::path m_Saved;   // where a clean stop leaves requests for the next start
    std::filesystem::path m_Waiting; // where the module writes what waits
    bool m_bRunning = false;
    Counters m_Counters;
};
