#include "tests/gateway/transport/TransportFixture.h"

#include "base/EMailMessage.h"
#include "base/EUploadFiles.h"
#include "base/IEMailService.h"
#include "base/IUploadService.h"
#include "gateway/Configuration.h"
#include "gateway/JsonObject.h"

#include <algorithm>
#include <list>
#include <random>

namespace fs = std::filesystem;

constexpr unsigned long CONTEXT = 4711;
const std::string SERVER = "/usr/bin/python3 " KVTEST_SOURCES "transport/server.py ";

void TestServer::SetFault(const std::string& fault) {
    WriteWhole(Path("fault"), fault);
    if (fault == "down" && m_pProgram != nullptr) {
        m_pProgram->Wait();
        m_pProgram.reset();
    } else if (fault != "down" && m_pProgram == nullptr) {
        m_pProgram = std::make_unique<Program>(SERVER + m_Kind + ' ' + m_Directory.Path() + ' ' + m_Port);
        Eventually([this] { return m_pProgram->Output().ends_with('\n'); });
        m_Port = Lines(m_pProgram->Output()).at(0);
    }
}

Server TestServer::Target(const std::string& host) const {
    const std::string url = m_Kind.substr(0, m_Kind.find('_')) + "://" + host + ':' + m_Port + '/';
    const bool encryptsLater = m_Kind.ends_with("_tls");
    return {url, encryptsLater, "kavro", "s3cret-word", Path("certificate.pem"), Path("known_hosts"), Path("client")};
}

Names TestServer::Arrivals() const {
    Names arrivals = Lines(ReadWhole(Path("arrivals")));
    for (std::string& line : arrivals) {
        line.erase(0, line.rfind('/') + 1);
    }
    return arrivals;
}

MailSettings TransportFixture::MailTo(const Server& server) const {
    Findings ignored; // a file of log files is missing
    MailSettings settings = Configuration::Load(KVTEST_SOURCES "transport/mail", ignored).m_Mail.value();
    static_cast<Server&>(settings) = server;
    settings.m_Spool = m_Spool;
    return settings;
}

void TransportFixture::Open(const MailSettings* mail, const UploadSettings* upload) {
    Close();
    m_pTransports = MakeTransports(mail, upload, [this](const std::string& line) {
        const std::lock_guard lock(m_Mutex);
        m_Reports.push_back(line);
    });
}

void TransportFixture::OpenFor(const TestServer& server, const Server& target) {
    server.IsForMails() ? Open(MailTo(target)) : Open(UploadTo(target));
}

void TransportFixture::MakeFiles(const Names& names, const std::string& bytes) {
    fs::create_directory("job");
    m_nCompleted = 0;
    for (const auto& name : names) {
        WriteWhole("job/" + name, bytes);
    }
}

void TransportFixture::Complete() {
    ++m_nCompleted;
    fs::remove_all("job");
}

EResult TransportFixture::SendMail(const Names& names, const std::string& bytes, const wchar_t* name) {
    MakeFiles(names, bytes);
    IEMailService& service = *m_pTransports->EMail();
    EMailMessage* const message = service.CreateMessage();
    message->m_Name = name;
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

EResult TransportFixture::Upload(const Names& names, const std::string& bytes, const Server& server) {
    MakeFiles(names, bytes);
    std::list<EUploadFile> files;
    EUploadFiles list;
    for (const auto& name : names) {
        list.AddTail(&files.emplace_back(Wide("job/" + name), false, false));
    }
    EString url = Wide(server.m_Url);
    EString user = Wide(server.m_User);
    EString password = Wide(server.m_Password);
    const EResult result =
        m_pTransports->Upload()->UploadFiles(&list, url.IsEmpty() ? nullptr : &url, &user, &password, CONTEXT, this);
    EXPECT_EQ(m_nCompleted, Failed(result) ? 0 : 1);
    return result;
}

void TransportFixture::OnUploadComplete(unsigned long context, unsigned long status) {
    EXPECT_EQ(status, 0U);
    EXPECT_EQ(context, CONTEXT);
    Complete();
}

EResult TransportFixture::Send(const std::string& name, const std::string& bytes) {
    return m_pTransports->EMail() != nullptr ? SendMail({name}, bytes) : Upload({name}, bytes);
}

std::uint64_t TransportFixture::Waiting() const {
    return m_pTransports->Counters().m_nMailsWaiting + m_pTransports->Counters().m_nFilesWaiting;
}

long TransportFixture::CountReports(const std::string& text) const {
    const std::lock_guard lock(m_Mutex);
    return std::count_if(m_Reports.begin(), m_Reports.end(),
                         [&](const std::string& line) { return line.find(text) != std::string::npos; });
}

bool TransportFixture::WaitUntilReported(const std::string& text) const {
    return Eventually([&] { return CountReports(text) != 0; });
}

std::string BinaryBytes(std::size_t size) {
    std::mt19937 random(static_cast<unsigned>(size));
    std::string bytes = ".\r\n..\n.\n\r\n.\r\n";
    while (bytes.size() < size) {
        bytes += static_cast<char>(random());
        bytes += bytes.size() % 1000 == 0 ? "\r\n.x" : "";
    }
    return bytes;
}

std::set<std::string> EntriesOf(const std::string& directory) {
    std::set<std::string> names;
    for (const auto& entry : fs::directory_iterator(directory)) {
        names.insert(entry.path().filename().string());
    }
    return names;
}
