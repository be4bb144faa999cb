#include "tests/gateway/transport/TransportFixture.h"

#include "base/EUploadFiles.h"

#include <algorithm>
#include <random>
#include <thread>

namespace fs = std::filesystem;

constexpr unsigned long CONTEXT = 4711;

MailSettings TransportFixture::MailTo(const Server& server) const {
    MailSettings settings;
    static_cast<Server&>(settings) = server;
    settings.m_From = "gateway@example.com";
    settings.m_Outbox = m_Directory.Path("outbox");
    settings.m_Spool = m_Spool;
    settings.m_Definitions = {{"Report", {"to@example.com"}, {}, {}, "Report", "See below.", {}}};
    return settings;
}

UploadSettings TransportFixture::UploadTo(const Server& server) const {
    return {server, m_Directory.Path("uploads"), m_Spool};
}

void TransportFixture::Open(const MailSettings* mail, const UploadSettings* upload) {
    Close();
    m_pTransports = MakeTransports(mail, upload, [this](const std::string& line) {
        const std::lock_guard lock(m_Mutex);
        m_Reports += line + '\n';
    });
}

void TransportFixture::OpenFor(const TestServer& server, const Server& target) {
    server.IsForMails() ? Open(MailTo(target)) : Open(UploadTo(target));
}

void TransportFixture::MakeFiles(const std::vector<std::string>& names, const std::string& bytes) {
    fs::create_directory(m_Directory.Path("job"));
    m_Paths.clear();
    m_nCompleted = 0;
    for (const auto& name : names) {
        m_Paths.push_back(m_Directory.Path("job/" + name));
        WriteWhole(m_Paths.back(), bytes);
    }
}

void TransportFixture::Complete() {
    ++m_nCompleted;
    for (const auto& path : m_Paths) {
        fs::remove(path);
    }
}

EResult TransportFixture::SendMail(const std::vector<std::string>& names, const std::string& bytes,
                                   const wchar_t* name) {
    MakeFiles(names, bytes);
    IEMailService& service = *m_pTransports->EMail();
    EMailMessage* const message = service.CreateMessage();
    message->m_Name = name;
    EXPECT_EQ(service.LoadMessage(message), RC_OK);
    const EPersistentString before = message->m_Attachments;
    for (const auto& path : m_Paths) {
        message->m_Attachments += L';';
        message->m_Attachments += Wide(path);
    }
    EXPECT_EQ(service.StoreMessage(message), RC_OK);
    const EResult result = service.SendMessage(
        message->m_Name, [](EMAILSTATUS, void* context) { static_cast<TransportFixture*>(context)->Complete(); }, this,
        nullptr);
    message->m_Attachments = before;
    EXPECT_EQ(service.StoreMessage(message), RC_OK);
    service.ReleaseMessage(message);
    EXPECT_EQ(m_nCompleted, Failed(result) ? 0 : 1);
    return result;
}

EResult TransportFixture::Upload(const std::vector<std::string>& names, const std::string& bytes,
                                 const Server& server) {
    MakeFiles(names, bytes);
    std::vector<EUploadFile> files;
    for (const auto& path : m_Paths) {
        files.emplace_back(Wide(path), false, false);
    }
    EUploadFiles list;
    for (auto& file : files) {
        list.AddTail(&file);
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
    return m_pTransports->Counters().front().m_nWaiting;
}

bool TransportFixture::WaitUntilWaiting(std::uint64_t count) const {
    for (int i = 0; i < 6000 && Waiting() > count; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return Waiting() == count;
}

int TransportFixture::CountReports(const std::string& text) const {
    const std::lock_guard lock(m_Mutex);
    int count = 0;
    for (auto place = m_Reports.find(text); place != std::string::npos; place = m_Reports.find(text, place + 1)) {
        ++count;
    }
    return count;
}

bool TransportFixture::WaitUntilReported(const std::string& text) const {
    for (int i = 0; i < 6000 && CountReports(text) == 0; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    EXPECT_NE(CountReports(text), 0) << "not reported: " << text << "; but:\n" << m_Reports;
    return CountReports(text) != 0;
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
