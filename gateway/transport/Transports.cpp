#include "gateway/transport/Transports.h"

#include "gateway/transport/EMailService.h"
#include "gateway/transport/EUploadService.h"

namespace {

class Transports : public ETransports {
public:
    Transports(const MailSettings* mail, const UploadSettings* upload, const Reporter& report) {
        if (mail != nullptr) {
            m_pMail = std::make_unique<EMailService>(*mail, report);
        }
        if (upload != nullptr) {
            m_pUpload = std::make_unique<EUploadService>(*upload, report);
        }
    }

    IEMailService* EMail() override { return m_pMail.get(); }
    IUploadService* Upload() override { return m_pUpload.get(); }

    bool Drain(std::chrono::milliseconds time) override {
        const auto end = ESender::Clock::now() + time;
        const bool isMailSent = m_pMail == nullptr || m_pMail->Drain(end);
        return (m_pUpload == nullptr || m_pUpload->Drain(end)) && isMailSent;
    }

    void Stop() override {
        if (m_pMail != nullptr) {
            m_pMail->Stop();
        }
        if (m_pUpload != nullptr) {
            m_pUpload->Stop();
        }
    }

    TransportCounters Counters() override {
        TransportCounters counters;
        if (m_pMail != nullptr) {
            counters.m_nMailsSent = m_pMail->CountSent();
            counters.m_nMailsWaiting = m_pMail->CountWaiting();
            counters.m_nRefused += m_pMail->CountRefused();
        }
        if (m_pUpload != nullptr) {
            counters.m_nFilesSent = m_pUpload->CountSent();
            counters.m_nFilesWaiting = m_pUpload->CountWaiting();
            counters.m_nRefused += m_pUpload->CountRefused();
        }
        return counters;
    }

private:
    std::unique_ptr<EMailService> m_pMail;
    std::unique_ptr<EUploadService> m_pUpload;
};

} // namespace

std::unique_ptr<ETransports> MakeTransports(const MailSettings* mail, const UploadSettings* upload,
                                            const Reporter& report) {
    return std::make_unique<Transports>(mail, upload, report);
}
