#pragma once

#include "base/ISMListener.h"
#include "gateway/transport/Transports.h"
#include "tests/gateway/Program.h"

#include <gtest/gtest.h>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

using Names = std::vector<std::string>;

// server.py, with a directory of its own, which outlives the program.
class TestServer {
public:
    explicit TestServer(const std::string& kind) : m_Kind(kind) { SetFault(""); }
    ~TestServer() { SetFault("down"); }
    TestServer(const TestServer&) = delete;
    TestServer& operator=(const TestServer&) = delete;

    // "": none; "down": the program is ended; otherwise as server.py says.
    void SetFault(const std::string& fault);

    bool IsForMails() const { return m_Kind.starts_with("smtp"); }
    bool IsOpen() const { return m_Kind == "smtp" || m_Kind == "ftp" || m_Kind == "http"; } // knows no encryption
    Server Target(const std::string& host = "127.0.0.1") const; // with all that is needed to log in and to trust it
    Names Arrivals() const;                                     // in order
    std::string Path(const std::string& name) const { return m_Directory.Path(name); } // "data/...": what has come

private:
    TempDir m_Directory;
    std::string m_Kind;
    std::string m_Port; // of an earlier start
    std::unique_ptr<Program> m_pProgram;
};

// The transports as the module meets them: files are made, handed over, and deleted by the completion.
class TransportFixture : public testing::Test, public ISMListener {
protected:
    // A local directory where no server is given. The definitions stand in mail/gateway.json.
    MailSettings MailTo(const Server& server = {}) const;
    UploadSettings UploadTo(const Server& server = {}) const { return {server, "uploads", m_Spool}; }

    // Starts the transports, in place of earlier ones.
    void Open(const MailSettings& mail) { Open(&mail, nullptr); }
    void Open(const UploadSettings& upload) { Open(nullptr, &upload); }
    void OpenFor(const TestServer& server) { OpenFor(server, server.Target()); }
    void OpenFor(const TestServer& server, const Server& target);
    void Close() { m_pTransports.reset(); }

    // Hands over new files of these names, in "job". After a success the completion has been called once, and they are
    // deleted.
    EResult SendMail(const Names& names, const std::string& bytes, const wchar_t* name = L"Report");
    EResult Upload(const Names& names, const std::string& bytes, const Server& server = {});
    EResult Send(const std::string& name, const std::string& bytes); // by the service that there is

    long CountReports(const std::string& text) const; // the lines with the text
    bool WaitUntilReported(const std::string& text) const;
    bool Drain(int milliseconds = 60'000) { return m_pTransports->Drain(std::chrono::milliseconds(milliseconds)); }
    std::uint64_t Waiting() const; // mails and files

    void OnUploadComplete(unsigned long context, unsigned long status) override;

    Workplace m_Place;
    SpoolSettings m_Spool{"spool", 0, 0, 0, 5, 1};
    std::unique_ptr<ETransports> m_pTransports;

private:
    void Open(const MailSettings* mail, const UploadSettings* upload);
    void MakeFiles(const Names& names, const std::string& bytes);
    void Complete();

    int m_nCompleted = 0;
    mutable std::mutex m_Mutex;
    Names m_Reports;
};

// Every byte value, long lines, and lines that begin with dots.
std::string BinaryBytes(std::size_t size);

std::set<std::string> EntriesOf(const std::string& directory);
