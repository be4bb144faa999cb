#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

// What the transports are told. All texts are UTF-8; paths are relative to the working directory; nothing is empty that
// is not said to be so. The secrets are already read from where the configuration keeps them.

// One line for the operator, without its end. Called on any thread.
using Reporter = std::function<void(const std::string& line)>;

// The place where accepted files wait until they are really sent, and how often that is tried.
struct SpoolSettings {
    std::string m_Directory;
    std::uint64_t m_nLimit = 0;     // bytes of all waiting files together; 0: no limit
    unsigned m_nRetryMin = 0;       // seconds before the second attempt; every further one waits twice as long ...
    unsigned m_nRetryMax = 0;       // ... up to this many seconds; at least m_nRetryMin
    unsigned m_nConnectTimeout = 0; // seconds until a connection stands
    unsigned m_nStallTimeout = 0;   // seconds without progress after which a transfer has failed
};

// A stored e-mail definition.
struct MailDefinition {
    std::string m_Name; // also "name@identifier", for log files of an identifier
    std::vector<std::string> m_To;
    std::vector<std::string> m_Cc;
    std::vector<std::string> m_Bcc;         // of the three lists at least one has an entry
    std::string m_Subject;                  // may be empty
    std::string m_Text;                     // may be empty
    std::vector<std::string> m_Attachments; // paths of files that go with every mail; may be empty
};

struct MailSettings {
    std::string m_Url;          // smtp:// or smtps://; empty: mails become .eml files in the outbox directory
    bool m_bRequireTls = false; // smtp:// only: nothing is sent before STARTTLS has succeeded
    std::string m_User;         // empty: no login
    std::string m_Password;     // may be empty
    std::string m_From;
    std::string m_CaFile; // certificates to trust instead of the system's; empty: the system's
    std::string m_Outbox; // used when the URL is empty
    SpoolSettings m_Spool;
    std::vector<MailDefinition> m_Definitions; // names are unique
};

// Where uploads go. A target of its own can be set for an identifier.
struct UploadSettings {
    std::string m_Url;        // file, ftp(s), sftp, http(s); a directory, ends in '/'; empty: m_Directory
    std::string m_Directory;  // local directory, used when the URL is empty
    std::string m_User;       // empty: no login
    std::string m_Password;   // may be empty
    std::string m_CaFile;     // as MailSettings::m_CaFile
    std::string m_KnownHosts; // sftp: file of the host keys to accept; empty: ~/.ssh/known_hosts
    SpoolSettings m_Spool;
};
