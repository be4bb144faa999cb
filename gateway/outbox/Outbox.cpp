#include "gateway/outbox/Outbox.h"

#include <algorithm>

Outbox::Outbox(const MailSettings* mail, const OutboxSettings* upload, const Reporter& report) {
    if (mail != nullptr) {
        m_pMail = std::make_unique<MailService>(*mail, report);
        m_Queues.push_back(&m_pMail->m_Queue);
    }
    if (upload != nullptr) {
        m_pUpload = std::make_unique<UploadService>(*upload, report);
        m_Queues.push_back(&m_pUpload->m_Queue);
    }
}

bool Outbox::Drain(std::chrono::milliseconds time) {
    const auto end = Queue::Clock::now() + time;
    return std::count_if(m_Queues.begin(), m_Queues.end(), [&](Queue* queue) { return !queue->Drain(end); }) == 0;
}

void Outbox::Stop() {
    std::for_each(m_Queues.begin(), m_Queues.end(), [](Queue* queue) { queue->Stop(); });
}

std::vector<QueueCounters> Outbox::Counters() const {
    std::vector<QueueCounters> counters;
    for (const Queue* const queue : m_Queues) {
        counters.push_back(queue->Counters());
    }
    return counters;
}
