#include "gateway/transport/Transports.h"

#include "gateway/transport/EMailService.h"
#include "gateway/transport/EUploadService.h"

#include <algorithm>
#include <optional>

namespace {

class Transports : public ETransports {
public:
    Transports(const MailSettings* mail, const UploadSettings* upload, const Reporter& report) {
        if (mail != nullptr) {
            m_Mail.emplace(*mail, report);
        }
        if (upload != nullptr) {
            m_Upload.emplace(*upload, report);
        }
    }

    IEMailService* EMail() override { return m_Mail.has_value() ? &*m_Mail : nullptr; }
    IUploadService* Upload() override { return m_Upload.has_value() ? &*m_Upload : nullptr; }

    bool Drain(std::chrono::milliseconds time) override {
        const auto end = ESender::Clock::now() + time;
        const bool mailsSent = !m_Mail.has_value() || m_Mail->Sender().Drain(time);
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - ESender::Clock::now());
        return (!m_Upload.has_value() || m_Upload->Sender().Drain(std::max(left, {}))) && mailsSent;
    }

    void Stop() override {
        if (m_Mail.has_value()) {
            m_Mail->Sender().Stop();
        }
        if (m_Upload.has_value()) {
            m_Upload->Sender().Stop();
        }
    }

    TransportCounters Counters() override {
        TransportCounters counters;
        if (m_Mail.has_value()) {
            counters.m_nMailsAccepted = m_Mail->Sender().m_nAccepted;
            counters.m_nMailsSent = m_Mail->Sender().m_nSent;
            counters.m_nMailsWaiting = m_Mail->Sender().Spool().CountJobs();
            counters.m_nRefused += m_Mail->Sender().m_nRefused;
        }
        if (m_Upload.has_value()) {
            counters.m_nFilesAccepted = m_Upload->Sender().m_nAccepted;
            counters.m_nFilesSent = m_Upload->Sender().m_nSent;
            counters.m_nFilesWaiting = m_Upload->Sender().Spool().CountFiles();
            counters.m_nRefused += m_Upload->Sender().m_nRefused;
        }
        return counters;
    }

private:
    std::optional<EMailService> m_Mail;
    std::optional<EUploadService> m_Upload;
};

} // namespace

std::unique_ptr<ETransports> MakeTransports(const MailSettings* mail, const UploadSettings* upload, Reporter report) {
    return std::make_unique<Transports>(mail, upload, std::move(report));
}
