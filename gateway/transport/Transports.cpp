#include "gateway/transport/Transports.h"

#include "gateway/transport/EMailService.h"
#include "gateway/transport/EUploadService.h"

#include <algorithm>

namespace {

class Transports : public ETransports {
public:
    Transports(const MailSettings* mail, const UploadSettings* upload, const Reporter& report) {
        if (mail != nullptr) {
            m_Senders.push_back((m_pMail = std::make_unique<EMailService>(*mail, report)).get());
        }
        if (upload != nullptr) {
            m_Senders.push_back((m_pUpload = std::make_unique<EUploadService>(*upload, report)).get());
        }
    }

    IEMailService* EMail() override { return m_pMail.get(); }
    IUploadService* Upload() override { return m_pUpload.get(); }

    bool Drain(std::chrono::milliseconds time) override {
        const auto end = ESender::Clock::now() + time;
        return std::count_if(m_Senders.begin(), m_Senders.end(), [&](ESender* i) { return !i->Drain(end); }) == 0;
    }

    void Stop() override {
        std::for_each(m_Senders.begin(), m_Senders.end(), [](ESender* i) { i->Stop(); });
    }

    std::vector<TransportCounters> Counters() override {
        std::vector<TransportCounters> counters;
        for (const ESender* const sender : m_Senders) {
            counters.push_back(sender->Counters());
        }
        return counters;
    }

private:
    std::unique_ptr<EMailService> m_pMail;
    std::unique_ptr<EUploadService> m_pUpload;
    std::vector<ESender*> m_Senders; // both, as far as they are there
};

} // namespace

std::unique_ptr<ETransports> MakeTransports(const MailSettings* mail, const UploadSettings* upload,
                                            const Reporter& report) {
    return std::make_unique<Transports>(mail, upload, report);
}
