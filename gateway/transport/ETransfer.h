#pragma once

#include "gateway/transport/Settings.h"

#include <atomic>
#include <filesystem>
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

// The URL without what must not be seen: user, password and query.
std::string PublicUrl(const std::string& url);

// The local path of a file:// URL; empty for other URLs.
std::string LocalPath(const std::string& url);

// The name that a file goes by: its own, less control characters, which no protocol takes.
std::string NameToSend(const std::filesystem::path& path);

// Sends to servers, one transfer at a time, each on a connection of its own: one that was left open would be found dead
// after an outage, and the failure be taken for a new one. The sending thread must not take signals.
class ETransfer {
public:
    explicit ETransfer(const SpoolSettings& timeouts);
    ETransfer(const ETransfer&) = delete;
    ETransfer& operator=(const ETransfer&) = delete;

    // Sends the file, a message with CRLF line ends, to the mailboxes.
    SendResult SendMail(const Server& server, const std::string& from, const std::vector<std::string>& to,
                        const std::filesystem::path& message);

    // Puts a file into the directory that the server's URL names. FTP and SFTP servers get it under a temporary name
    // first, so that nobody sees a part of it.
    SendResult Upload(const Server& server, const std::filesystem::path& file, const std::string& name);

    // Any thread: ends the running transfer within about a second, and every later one at once. A server that has got
    // everything is given another second to confirm it, or it would get it again.
    void Abort() { m_bAborted = true; }

private:
    class Transfer;

    unsigned m_nConnectTimeout;
    unsigned m_nStallTimeout;
    std::atomic<bool> m_bAborted = false;
};
