#pragma once

#include "base/EMailMessage.h"
#include "base/IEMailService.h"
#include "base/ISMListener.h"
#include "base/IUploadService.h"
#include "gateway/transport/Transports.h"
#include "tests/TempDir.h"
#include "tests/gateway/transport/Servers.h"

#include <gtest/gtest.h>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

// The transports as the module meets them: files are made, handed over, and deleted by the completion.
class TransportFixture : public testing::Test, public ISMListener {
protected:
    static constexpr const char* USER = "kavro";
    static constexpr const char* PASSWORD = "s3cret-word";

    SpoolSettings Spool(const std::string& name) const;
    MailSettings MailTo(const std::string& url) const; // with the definition "Report"
    UploadSettings UploadTo(const std::string& url) const;

    // Starts the transports, in place of earlier ones.
    void Open(const MailSettings& mail) { Open(&mail, nullptr); }
    void Open(const UploadSettings& upload) { Open(nullptr, &upload); }
    void Close() { m_pTransports.reset(); }

    // Hands over new files of these names. After a success the completion has been called once, and they are deleted.
    EResult SendMail(const std::vector<std::string>& names, const std::string& bytes, const wchar_t* name = L"Report");
    EResult Upload(const std::vector<std::string>& names, const std::string& bytes, const std::string& url = {});

    bool Reported(const std::string& text) const;
    bool WaitUntilReported(const std::string& text) const;
    std::vector<std::string> SpoolEntries(const std::string& name) const; // sorted
    bool Drain() { return m_pTransports->Drain(std::chrono::seconds(60)); }
    std::string SpoolPath(const std::string& name) const { return m_Directory.Path("spool/" + name); }

    void OnUploadComplete(unsigned long context, unsigned long status) override;

    TempDir m_Directory;
    unsigned m_nStallTimeout = 1; // seconds
    std::unique_ptr<ETransports> m_pTransports;

private:
    struct Sending {
        std::vector<std::string> m_Paths;
        int m_nCompleted = 0;
        void Complete();
    };

    void Open(const MailSettings* mail, const UploadSettings* upload);
    Sending MakeFiles(const std::vector<std::string>& names, const std::string& bytes) const;

    mutable std::mutex m_Mutex;
    std::string m_Reports;
};

// Every byte value, long lines, and lines that begin with dots.
std::string BinaryBytes(std::size_t size);

std::vector<std::string> EntriesOf(const std::string& directory); // sorted
