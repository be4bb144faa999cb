#pragma once

#include "gateway/Kernel.h"
#include "gateway/Module.h"
#include "gateway/Report.h"
#include "gateway/WorkDirectory.h"
#include "gateway/outbox/Outbox.h"

// The running module with its kernel and outbox. One thread.
class Gateway {
public:
    // Starts the module and reports the requests that an earlier stop has saved. Throws std::exception for the operator.
    Gateway(const Configuration& configuration, const std::filesystem::path& directory,
            const std::filesystem::path& module);
    ~Gateway();

    // False, and the reason, when the module refuses the report.
    bool Submit(Report& report, std::string& reason);

    // How many requests wait; nothing when that is unknown. Makes the module write all of them to a file.
    std::optional<std::uint32_t> CountWaiting();

    // Ends the worker after its current request. `save` saves the waiting requests for the next start; otherwise they are
    // dropped. False when they could not be saved. Both are said on stderr.
    bool End(bool save);

    Outbox& GetOutbox() { return m_Outbox; }

    static std::uint64_t FailedWrites(); // of log files, so far; each is a row that is lost
    int Messages() const { return m_Kernel.Messages(); }

private:
    void Start();
    void StartWithSavedRequests();
    EResult Submit(Report& report);

    std::filesystem::path m_Directory; // of the configuration, absolute
    WorkDirectory m_Work;
    Outbox m_Outbox;
    Kernel m_Kernel;
    Module m_Module;
    // Stops the outbox before the module is destroyed, because its notices call the module.
    const std::unique_ptr<Outbox, void (*)(Outbox*)> m_Stopper{&m_Outbox, [](Outbox* outbox) { outbox->Stop(); }};
    std::filesystem::path m_Saved;   // where a clean stop leaves requests for the next start
    std::filesystem::path m_Waiting; // where the module writes what waits
    bool m_bRunning = false;
};
