#include "tests/gateway/transport/TransportFixture.h"

#include "base/EUploadFiles.h"

#include <algorithm>
#include <random>
#include <thread>

namespace fs = std::filesystem;

SpoolSettings TransportFixture::Spool(const std::string& name) const {
    SpoolSettings settings;
    settings.m_Directory = SpoolPath(name);
    settings.m_nConnectTimeout = 5;
    settings.m_nStallTimeout = m_nStallTimeout;
    return settings;
}

MailSettings TransportFixture::MailTo(const std::string& url) const {
    MailSettings settings;
    settings.m_Url = url;
    settings.m_From = "Gateway <gateway@example.com>";
    settings.m_Outbox = m_Directory.Path("outbox");
    settings.m_Spool = Spool("mail");
    settings.m_Definitions = {{"Report", {"to@example.com"}, {}, {}, "Report", "See below.", {}}};
    return settings;
}

UploadSettings TransportFixture::UploadTo(const std::string& url) const {
    UploadSettings settings;
    settings.m_Url = url;
    settings.m_Directory = m_Directory.Path("uploads");
    settings.m_User = url.starts_with("ftp") ? USER : "";
    settings.m_Password = url.starts_with("ftp") ? PASSWORD : "";
    settings.m_Spool = Spool("upload");
    return settings;
}

void TransportFixture::Open(const MailSettings* mail, const UploadSettings* upload) {
    Close();
    m_pTransports = MakeTransports(mail, upload, [this](const std::string& line) {
        const std::lock_guard lock(m_Mutex);
        m_Reports += line + '\n';
    });
}

void TransportFixture::Sending::Complete() {
    ++m_nCompleted;
    for (const auto& path : m_Paths) {
        fs::remove(path);
    }
}

TransportFixture::Sending TransportFixture::MakeFiles(const std::vector<std::string>& names,
                                                      const std::string& bytes) const {
    Sending sending;
    fs::create_directory(m_Directory.Path("job"));
    for (const auto& name : names) {
        sending.m_Paths.push_back(m_Directory.Path("job/" + name));
        WriteWhole(sending.m_Paths.back(), bytes);
    }
    return sending;
}

EResult TransportFixture::SendMail(const std::vector<std::string>& names, const std::string& bytes,
                                   const wchar_t* name) {
    Sending sending = MakeFiles(names, bytes);
    IEMailService& service = *m_pTransports->EMail();
    EMailMessage* const message = service.CreateMessage();
    message->m_Name = name;
    EXPECT_EQ(service.LoadMessage(message), RC_OK);
    const EPersistentString before = message->m_Attachments;
    for (const auto& path : sending.m_Paths) {
        message->m_Attachments += L';';
        message->m_Attachments += Wide(path);
    }
    EXPECT_EQ(service.StoreMessage(message), RC_OK);
    const EResult result = service.SendMessage(
        message->m_Name, [](EMAILSTATUS, void* context) { static_cast<Sending*>(context)->Complete(); }, &sending,
        nullptr);
    message->m_Attachments = before;
    EXPECT_EQ(service.StoreMessage(message), RC_OK);
    service.ReleaseMessage(message);
    EXPECT_EQ(sending.m_nCompleted, Failed(result) ? 0 : 1);
    return result;
}

EResult TransportFixture::Upload(const std::vector<std::string>& names, const std::string& bytes,
                                 const std::string& url) {
    Sending sending = MakeFiles(names, bytes);
    std::vector<EUploadFile> files;
    for (const auto& path : sending.m_Paths) {
        files.emplace_back(Wide(path), false, false);
    }
    EUploadFiles list;
    for (auto& file : files) {
        list.AddTail(&file);
    }
    EString target = Wide(url);
    EString user = Wide(USER);
    EString password = Wide(PASSWORD);
    const EResult result = m_pTransports->Upload()->UploadFiles(
        &list, url.empty() ? nullptr : &target, &user, &password, reinterpret_cast<unsigned long>(&sending), this);
    EXPECT_EQ(sending.m_nCompleted, Failed(result) ? 0 : 1);
    return result;
}

void TransportFixture::OnUploadComplete(unsigned long context, unsigned long status) {
    EXPECT_EQ(status, 0U);
    reinterpret_cast<Sending*>(context)->Complete();
}

bool TransportFixture::Reported(const std::string& text) const {
    const std::lock_guard lock(m_Mutex);
    return m_Reports.find(text) != std::string::npos;
}

bool TransportFixture::WaitUntilReported(const std::string& text) const {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!Reported(text)) {
        if (std::chrono::steady_clock::now() > end) {
            ADD_FAILURE() << "not reported: " << text << "; but:\n" << m_Reports;
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
}

std::vector<std::string> TransportFixture::SpoolEntries(const std::string& name) const {
    return EntriesOf(SpoolPath(name));
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

std::vector<std::string> EntriesOf(const std::string& directory) {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(directory)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}
