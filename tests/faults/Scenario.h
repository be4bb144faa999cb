#pragma once

#include "tests/Workplace.h"
#include "tests/kernel/TestKernel.h"

#include <map>
#include <string>
#include <vector>

class ELogFile;

// What has become of one log file's rows.
struct FaultOutcome {
    std::map<std::string, std::vector<int>> m_Files; // on disk; every job's directory is called "$tmp"
    std::vector<int> m_Kept;                         // the rows on disk, and
    std::vector<int> m_Sent;                         // those handed to an upload or an e-mail, from file to file

    bool operator==(const FaultOutcome&) const = default;
};

// A log file of the scenario, and what its files consist of, byte for byte.
struct FaultLog {
    std::string m_Name;
    int m_nFormat;
    int m_nUnicode;
    int m_nFiles;
    int m_nDelivery;
    int m_nKeepCopy;
    std::vector<int> m_Kept; // the rows on disk when nothing has failed

    bool IsDelivered() const { return m_nDelivery != 1; }
    bool Owns(const std::string& path) const;
    std::string Items() const; // of the section's element; two rows fill a file

    // Fails the test unless every file is a header, and whole rows and footers behind it, and each row is in one place,
    // behind the older ones.
    FaultOutcome OutcomeOf(const TestKernel& kernel) const;

private:
    std::string Line(const std::string& cells, const std::string& tag) const;
    std::string Header() const;
    std::vector<int> Rows(const std::string& path, const std::string& bytes) const; // their numbers
};

// The life of a service that meets every use of files: rows through rotations of each format, deliveries of each kind, a
// restart, a warm save; then a second service that restores and goes on. It runs when it is constructed.
class Scenario {
public:
    // Rows 1 to 4 of a delivered log file, of which the first three are delivered; 1 to 12 of another one, of which 10
    // and 11 are saved by the first service and restored by the second.
    static constexpr int LAST_DELIVERED = 3;
    static constexpr int RESTART_AFTER = 8;
    static constexpr int SAVED = 10;
    static constexpr int LAST = 12;

    Scenario();
    ~Scenario() { EPersistent::RemoveFactories(); }
    static const std::vector<FaultLog>& Logs();
    static void WriteSection(); // the service's, with all logs

    std::map<std::string, FaultOutcome> m_Outcomes; // by the log file's name
    std::vector<std::string> m_Strays;              // files that belong to no log file
    int m_nJobDirectories = 0;                      // that are left after the deliveries
    bool m_bSaveFailed = false;                     // and the kernel was told so
    bool m_bRestoreFailed = false;                  // likewise

private:
    void RunFirst();
    void RunSecond();
    void NoteFiles(bool delivered, const TestKernel& kernel);

    Workplace m_Workplace;
};

// Drives the service on one log file.
void WriteRows(ELogFile* service, const FaultLog& log, int first, int last); // rows 1 to 99
EResult Ask(ELogFile* service, const FaultLog& log, const wchar_t* action);
