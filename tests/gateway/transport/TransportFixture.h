#pragma once

#include "base/EMailMessage.h"
#include "base/EUploadFiles.h"
#include "base/IEMailService.h"
#include "base/ISMListener.h"
#include "base/IUploadService.h"
#include "gateway/Configuration.h"
#include "gateway/JsonObject.h"
#include "gateway/transport/Transports.h"
#include "tests/gateway/Program.h"

#include <gtest/gtest.h>
#include <list>
#include <mutex>

using Names = std::vector<std::string>;

// server.py, with a directory of its own, which outlives the program.
class TestServer {
public:
    explicit TestServer(const std::string& kind) : m_Kind(kind) { SetFault(""); }
    ~TestServer() { SetFault("down"); }
    TestServer(const TestServer&) = delete;
    TestServer& operator=(const TestServer&) = delete;

    // "": none; "down": the program is ended; otherwise as server.py says.
    void SetFault(const std::string& fault) {
        WriteWhole(Path("fault"), fault);
        if (fault == "down" && m_pProgram != nullptr) {
            m_pProgram->Wait();
            m_pProgram.reset();
        } else if (fault != "down" && m_pProgram == nullptr) {
            const std::string server = "/usr/bin/python3 " KVTEST_SOURCES "transport/server.py ";
            m_pProgram = std::make_unique<Program>(server + m_Kind + ' ' + m_Directory.Path() + ' ' + m_Port);
            Eventually([this] { return m_pProgram->Output().ends_with('\n'); });
            m_Port = Lines(m_pProgram->Output()).at(0);
        }
    }

    bool IsForMails() const { return m_Kind.starts_with("smtp"); }
    bool IsOpen() const { return m_Kind == "smtp" || m_Kind == "ftp" || m_Kind == "http"; } // knows no encryption

    // With all that is needed to log in and to trust it.
    Server Target(const std::string& host = "127.0.0.1") const {
        const std::string url = m_Kind.substr(0, m_Kind.find('_')) + "://" + host + ':' + m_Port + '/';
        const bool encryptsLater = m_Kind.ends_with("_tls");
        return {url,           encryptsLater, "kavro", "s3cret-word", Path("certificate.pem"), Path("known_hosts"),
                Path("client")};
    }

    // The names of what has come, in order.
    Names Arrivals() const {
        Names arrivals = Lines(ReadWhole(Path("arrivals")));
        for (std::string& line : arrivals) {
            line.erase(0, line.rfind('/') + 1);
        }
        return arrivals;
    }

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
    // Starts the transports, in place of earlier ones; with a local directory where no server is given.
    void OpenForMails(const Server& server = {}) {
        Findings ignored; // a file of log files is missing
        MailSettings settings = Configuration::Load(KVTEST_SOURCES "transport/mail", ignored).m_Mail.value();
        static_cast<Server&>(settings) = server;
        settings.m_Spool = m_Spool;
        Open(&settings, nullptr);
    }
    void OpenForUploads(const Server& server = {}) {
        const UploadSettings settings{server, "uploads", m_Spool};
        Open(nullptr, &settings);
    }
    void OpenFor(const TestServer& server) { OpenFor(server, server.Target()); }
    void OpenFor(const TestServer& server, const Server& target) {
        server.IsForMails() ? OpenForMails(target) : OpenForUploads(target);
    }
    void Close() { m_pTransports.reset(); }

    // Hand over new files of these names, in "job". After a success the completion has been called once, and they are
    // deleted.
    EResult SendMail(const Names& names, const std::string& bytes, const wchar_t* definition = L"Report") {
        MakeFiles(names, bytes);
        IEMailService& service = *m_pTransports->EMail();
        EMailMessage* const message = service.CreateMessage();
        message->m_Name = definition;
        EXPECT_EQ(service.LoadMessage(message), RC_OK);
        const EPersistentString before = message->m_Attachments;
        for (const auto& file : names) {
            message->m_Attachments += Wide(";job/" + file);
        }
        EXPECT_EQ(service.StoreMessage(message), RC_OK);
        const auto complete = [](EMAILSTATUS, void* context) { static_cast<TransportFixture*>(context)->Complete(); };
        const EResult result = service.SendMessage(message->m_Name, complete, this, nullptr);
        message->m_Attachments = before;
        EXPECT_EQ(service.StoreMessage(message), RC_OK);
        service.ReleaseMessage(message);
        EXPECT_EQ(m_nCompleted, Failed(result) ? 0 : 1);
        return result;
    }
    EResult Upload(const Names& names, const std::string& bytes, const Server& server = {}) {
        MakeFiles(names, bytes);
        std::list<EUploadFile> files;
        EUploadFiles list;
        for (const auto& name : names) {
            list.AddTail(&files.emplace_back(Wide("job/" + name), false, false));
        }
        EString login[] = {Wide(server.m_Url), Wide(server.m_User), Wide(server.m_Password)};
        EString* const url = server.m_Url.empty() ? nullptr : login;
        const EResult result = m_pTransports->Upload()->UploadFiles(&list, url, &login[1], &login[2], CONTEXT, this);
        EXPECT_EQ(m_nCompleted, Failed(result) ? 0 : 1);
        return result;
    }
    EResult Send(const std::string& name, const std::string& bytes) { // by the service that there is
        return m_pTransports->EMail() != nullptr ? SendMail({name}, bytes) : Upload({name}, bytes);
    }

    long CountReports(const std::string& text) const { // the lines with the text
        const std::lock_guard lock(m_Mutex);
        return std::count_if(m_Reports.begin(), m_Reports.end(),
                             [&](const std::string& line) { return line.find(text) != std::string::npos; });
    }
    bool WaitUntilReported(const std::string& text) const {
        return Eventually([&] { return CountReports(text) != 0; });
    }
    bool Drain(int milliseconds = 60'000) { return m_pTransports->Drain(std::chrono::milliseconds(milliseconds)); }
    std::uint64_t Waiting() const { // mails and files
        return m_pTransports->Counters().front().m_nWaiting;
    }

    void OnUploadComplete(unsigned long context, unsigned long status) override {
        EXPECT_EQ(status, 0U);
        EXPECT_EQ(context, CONTEXT);
        Complete();
    }

    Workplace m_Place;
    SpoolSettings m_Spool{"spool", 0, 0, 0, 5, 1};
    std::unique_ptr<ETransports> m_pTransports;

private:
    static constexpr unsigned long CONTEXT = 4711;

    void Open(const MailSettings* mail, const UploadSettings* upload) {
        Close();
        m_pTransports = MakeTransports(mail, upload, [this](const std::string& line) {
            const std::lock_guard lock(m_Mutex);
            m_Reports.push_back(line);
        });
    }
    void MakeFiles(const Names& names, const std::string& bytes) {
        std::filesystem::create_directory("job");
        m_nCompleted = 0;
        for (const auto& name : names) {
            WriteWhole("job/" + name, bytes);
        }
    }
    void Complete() {
        ++m_nCompleted;
        std::filesystem::remove_all("job");
    }

    int m_nCompleted = 0;
    mutable std::mutex m_Mutex;
    Names m_Reports;
};
