#pragma once

#include "gateway/transport/Settings.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

class IEMailService;
class IUploadService;

// What a transport did since it was made; what an earlier run left in the spool counts when it is sent.
struct TransportCounters {
    std::string m_Subject; // "e-mail", or "upload", which counts file by file
    std::uint64_t m_nSent;
    std::uint64_t m_nWaiting; // in the spool now
    std::uint64_t m_nRefused; // did not get into the spool
};

// The gateway's sending services, their spools and the threads that send. One thread makes, stops and frees them; the
// services are called from any thread.
class ETransports {
public:
    ETransports() = default;
    ETransports(const ETransports&) = delete;
    ETransports& operator=(const ETransports&) = delete;
    virtual ~ETransports() = default; // stops first

    virtual IEMailService* EMail() = 0;   // null when mails are not configured; lives as long as this object
    virtual IUploadService* Upload() = 0; // null when uploads are not configured

    // Waits until nothing waits to be sent any more, or the time is up; true in the first case. What is paused after a
    // failure is tried at once, by the first call only.
    virtual bool Drain(std::chrono::milliseconds time) = 0;

    // Ends the sending threads within a few seconds, also in the middle of a transfer, which is repeated at the next
    // start. What waits stays in the spool. The services still accept afterwards, into the spool.
    virtual void Stop() = 0;

    virtual std::vector<TransportCounters> Counters() = 0; // of those that are configured; any thread
};

// Makes the services that are configured (a null pointer: not configured) and begins to send what their spools hold.
// Throws std::runtime_error with a text for the operator when a spool cannot be used.
//
// The upload service reads the three parameters of UploadFiles, which come from the name service, as URL, user and
// password; an empty or missing URL means the settings' target.
std::unique_ptr<ETransports> MakeTransports(const MailSettings* mail, const UploadSettings* upload,
                                            const Reporter& report);
