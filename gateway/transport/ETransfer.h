#pragma once

#include "gateway/transport/Settings.h"

#include <atomic>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

// What an attempt to send came to.
struct SendResult {
    enum Outcome : unsigned char {
        Sent,
        Refused,     // the job did not get through; others may
        Unreachable, // neither did any other to the same place
        Aborted,     // by ETransfer::Abort
    };
    Outcome m_Outcome = Sent;
    std::string m_Text; // the reason, without secrets
};

// Who logs in where, and which certificates are trusted.
struct TransferTarget {
    std::string m_Url;
    std::string m_User;
    std::string m_Password;
    std::string m_CaFile;     // empty: the system's
    std::string m_KnownHosts; // sftp: empty: ~/.ssh/known_hosts
    bool m_bRequireTls = false;
};

// The URL without what must not be seen: user, password and query.
std::string PublicUrl(const std::string& url);

// The local path of a file:// URL; empty for other URLs.
std::string LocalPath(const std::string& url);

// Sends to servers, one transfer at a time, each on a connection of its own: one that was left open would be found dead
// after an outage, and the failure be taken for a new one. The sending thread must not take SIGPIPE.
class ETransfer {
public:
    explicit ETransfer(const SpoolSettings& timeouts);
    ETransfer(const ETransfer&) = delete;
    ETransfer& operator=(const ETransfer&) = delete;
    ~ETransfer();

    // Sends the open file's content, a message with CRLF line ends, to the mailboxes.
    SendResult SendMail(const TransferTarget& server, const std::string& from, const std::vector<std::string>& to,
                        int message);

    // Puts a file into the directory that the target's URL names. FTP and SFTP servers get it under a temporary name
    // first, so that nobody sees a part of it.
    SendResult Upload(const TransferTarget& directory, const std::filesystem::path& file, const std::string& name);

    // Any thread: ends the running transfer and every later one.
    void Abort();

private:
    struct Handle;

    SendResult Perform(Handle& handle);
    void PrepareUpload(Handle& handle, const TransferTarget& directory, const std::string& name) const;

    struct MultiCleanup {
        void operator()(void* multi) const;
    };
    std::unique_ptr<void, MultiCleanup> m_pMulti;
    unsigned m_nConnectTimeout;
    unsigned m_nStallTimeout;
    std::atomic<bool> m_bAborted = false;
};
