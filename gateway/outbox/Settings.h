#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

// What the outbox is told. All texts are UTF-8; paths are relative to the working directory.

constexpr int NO_IDENTIFIER = -1;

// Stand in a command for the identifier of the file's log file, or nothing; for the file's name; and for its path.
constexpr const char* PLACEHOLDERS[] = {"{id}", "{name}", "{path}"};

// Where entries go: to a program, or into a directory. With neither they stay in the outbox.
struct Target {
    std::vector<std::string> m_Command; // the program's path, then its arguments
    std::string m_Directory;

    bool IsNone() const { return m_Command.empty() && m_Directory.empty(); }
};

struct OutboxSettings {
    std::map<int, Target> m_Targets{{NO_IDENTIFIER, {}}}; // of identifiers that have their own; -1: of all others
    std::chrono::milliseconds m_RetryMin = std::chrono::seconds(5);  // pause after a failure; each further one is ...
    std::chrono::milliseconds m_RetryMax = std::chrono::minutes(10); // ... twice as long, up to this
    std::chrono::milliseconds m_Timeout = std::chrono::minutes(10);  // of a program
    std::uint64_t m_nLimit = 0;                                      // bytes of all entries together; 0: none
};

// A stored e-mail definition. Its addresses are bare ones, "user@host".
struct MailDefinition {
    std::string m_Name;            // also "name@identifier", for log files of an identifier
    std::string m_To, m_Cc, m_Bcc; // with ", " in between; at least one in all
    std::string m_Subject, m_Text;
    std::string m_Attachments; // paths of files that go with every mail, each preceded by ';'
};

struct MailSettings : OutboxSettings {
    std::string m_From;                                  // a bare address
    std::map<std::string, MailDefinition> m_Definitions; // by name
};
