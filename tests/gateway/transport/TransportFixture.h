#pragma once

#include "base/EMailMessage.h"
#include "base/IEMailService.h"
#include "base/ISMListener.h"
#include "base/IUploadService.h"
#include "gateway/transport/Transports.h"
#include "tests/gateway/transport/TestServer.h"

#include <gtest/gtest.h>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

// The transports as the module meets them: files are made, handed over, and deleted by the completion.
class TransportFixture : public testing::Test, public ISMListener {
protected:
    // A local directory where no server is given.
    MailSettings MailTo(const Server& server = {}) const; // with the definition "Report"
    UploadSettings UploadTo(const Server& server = {}) const;

    // Starts the transports, in place of earlier ones.
    void Open(const MailSettings& mail) { Open(&mail, nullptr); }
    void Open(const UploadSettings& upload) { Open(nullptr, &upload); }
    void OpenFor(const TestServer& server) { OpenFor(server, server.Target()); }
    void OpenFor(const TestServer& server, const Server& target);
    void Close() { m_pTransports.reset(); }

    // Hands over new files of these names. After a success the completion has been called once, and they are deleted.
    EResult SendMail(const std::vector<std::string>& names, const std::string& bytes, const wchar_t* name = L"Report");
    EResult Upload(const std::vector<std::string>& names, const std::string& bytes, const Server& server = {});
    EResult Send(const std::string& name, const std::string& bytes); // by the service that there is

    int CountReports(const std::string& text) const;
    bool WaitUntilReported(const std::string& text) const;
    bool Drain(int milliseconds = 60'000) { return m_pTransports->Drain(std::chrono::milliseconds(milliseconds)); }
    std::uint64_t Waiting() const;
    bool WaitUntilWaiting(std::uint64_t count) const; // mails or files, no more than these
    std::string SpoolPath(const std::string& name = {}) const { return m_Directory.Path("spool/" + name); }

    void OnUploadComplete(unsigned long context, unsigned long status) override;

    TempDir m_Directory;
    SpoolSettings m_Spool{SpoolPath(), 0, 0, 0, 5, 1};
    std::unique_ptr<ETransports> m_pTransports;

private:
    void Open(const MailSettings* mail, const UploadSettings* upload);
    void MakeFiles(const std::vector<std::string>& names, const std::string& bytes);
    void Complete();

    std::vector<std::string> m_Paths; // what is being handed over
    int m_nCompleted = 0;
    mutable std::mutex m_Mutex;
    std::string m_Reports;
};

// Every byte value, long lines, and lines that begin with dots.
std::string BinaryBytes(std::size_t size);

std::set<std::string> EntriesOf(const std::string& directory);
