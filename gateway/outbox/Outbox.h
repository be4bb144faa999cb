#pragma once

#include "gateway/outbox/MailService.h"
#include "gateway/outbox/UploadService.h"

#include <memory>

// The gateway's sending services and their queues in "outbox" of the working directory. One thread makes, stops and frees
// them; the services are called from any thread.
class Outbox {
public:
    // Null pointers: not configured. Throws std::exception when a queue cannot be used.
    Outbox(const MailSettings* mail, const OutboxSettings* upload, const Reporter& report);

    MailService* Mail() { return m_pMail.get(); }       // null when mails are not configured
    UploadService* Upload() { return m_pUpload.get(); } // null when uploads are not configured

    // Waits until nothing is left to be sent, or the time is up; true in the first case.
    bool Drain(std::chrono::milliseconds time);

    // Ends the sending threads within two seconds, also while a program runs. What waits goes out after the next start.
    void Stop();

    std::vector<QueueCounters> Counters() const;

private:
    std::unique_ptr<MailService> m_pMail;
    std::unique_ptr<UploadService> m_pUpload;
    std::vector<Queue*> m_Queues; // of both, as far as they are there
};
