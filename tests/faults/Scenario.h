#pragma once

#include "base/ResultCodes.h"
#include "tests/Workplace.h"

#include <map>
#include <set>

// A log file of the scenario. Two rows fill a file.
struct FaultLog {
    SpecItems m_Items;
    int m_nLast;             // row that is reported
    std::vector<int> m_Kept; // the rows on disk when nothing has failed

    bool IsDelivered() const { return m_Items.m_nDelivery != 1; }
};

// Path to the numbers of the rows, by the log file's name; every job's directory is called "$tmp".
using RowsOfFiles = std::map<std::string, std::vector<int>>;
using RowsOfLogs = std::map<std::string, RowsOfFiles>;

// The life of a service that meets every use of files and memory: rows through rotations of each format, deliveries of
// each kind, early and late events, a restart, a warm save; then a second service that restores and goes on. Faults
// strike in the module alone. Fails the test unless every file, on disk or sent, is byte for byte a header, and whole
// rows and footers behind it.
struct Scenario {
    static const std::vector<FaultLog> LOGS;
    static constexpr int LAST_DELIVERED = 3; // one more row is written afterwards
    static constexpr int SAVED[] = {10, 11}; // by the first service, and restored by the second

    static Scenario Run();

    RowsOfLogs m_Kept;                                  // on disk
    RowsOfLogs m_Sent;                                  // handed to an upload or an e-mail
    std::set<std::pair<EResult, std::string>> m_Failed; // what was asked for, and deliveries by their log file
    std::vector<std::string> m_Strays;                  // files that belong to no log file, and directories of jobs
    bool m_bTold = false;                               // that something failed; it was asked for once more
};
