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

// Where to, who logs in there, and what is trusted. All but the URL's meaning may be empty.
struct Server {
    std::string m_Url;
    bool m_bRequireTls = false; // nothing goes over SMTP, FTP or HTTP before the connection is encrypted
    std::string m_User;         // empty: no login
    std::string m_Password;
    std::string m_CaFile;     // certificates to trust instead of the system's; empty: the system's
    std::string m_KnownHosts; // sftp: file of the host keys to accept; empty: ~/.ssh/known_hosts
    std::string m_KeyFile;    // sftp: private key to log in with, whose passphrase is the password; empty: by password
};

// A stored e-mail definition. Its addresses are bare ones, "user@host".
struct MailDefinition {
    std::string m_Name; // also "name@identifier", for log files of an identifier
    std::vector<std::string> m_To;
    std::vector<std::string> m_Cc;
    std::vector<std::string> m_Bcc;         // of the three lists at least one has an entry
    std::string m_Subject;                  // may be empty
    std::string m_Text;                     // may be empty
    std::vector<std::string> m_Attachments; // paths of files that go with every mail; may be empty
};

struct MailSettings : Server { // smtp:// or smtps://
    std::string m_From;        // a bare address
    std::string m_Outbox;      // directory, used when the URL is empty: there mails become .eml files
    SpoolSettings m_Spool;
    std::vector<MailDefinition> m_Definitions; // names are unique
};

// Where uploads go: a directory at file, ftp(s), sftp or http(s), ends in '/'. An identifier can have another URL, user
// and password.
struct UploadSettings : Server {
    std::string m_Directory; // local directory, used when the URL is empty
    SpoolSettings m_Spool;
};
