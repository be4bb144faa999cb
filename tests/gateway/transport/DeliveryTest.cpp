#include "tests/gateway/transport/TransportFixture.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

namespace fs = std::filesystem;
using nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

namespace {

class Delivery : public TransportFixture, public testing::WithParamInterface<const char*> {};

std::string NameOf(const testing::TestParamInfo<const char*>& kind) {
    std::string name = kind.param;
    std::replace(name.begin(), name.end(), '-', '_');
    return name;
}

TEST_F(Delivery, EveryByteOfAMailArrives) {
    const TestServer server("smtp");
    MailSettings settings = MailTo(server.Target());
    WriteWhole(m_Directory.Path("legend.txt"), "fixed");
    settings.m_Definitions = {{"Störung@7",
                               {"to@example.com", "second@example.com"},
                               {"cc@example.com"},
                               {"hidden@example.com"},
                               "Störung – Überlauf 数据: " + std::string(100, 'x') + " Ende",
                               "Füllstand\n.\n..\n.begins with a dot\n\nEnde" + std::string(2000, 'y'),
                               {m_Directory.Path("legend.txt"), m_Directory.Path("missing.txt")}}};
    const MailDefinition& definition = settings.m_Definitions[0];
    const std::string bytes = BinaryBytes(300'000);
    for (const bool toOutbox : {false, true}) {
        settings.m_Url = toOutbox ? "" : settings.m_Url;
        Open(settings);
        ASSERT_EQ(SendMail({"Ärger – \"数\".csv", "a;b.csv", "empty\tname.csv"}, bytes, L"Störung@7"), RC_OK);
        ASSERT_TRUE(Drain());
        if (toOutbox) {
            const std::string mail = m_Directory.Path("outbox/" + *EntriesOf(m_Directory.Path("outbox")).begin());
            EXPECT_THAT(ReadWhole(mail), Not(HasSubstr("hidden")));
            TestServer::Parse(mail, m_Directory.Path());
        }
        const std::string data = toOutbox ? m_Directory.Path("data/") : server.Path("");
        const json mail = json::parse(ReadWhole(data + "mail.json"));
        EXPECT_EQ(mail["headings"]["Subject"], definition.m_Subject);
        EXPECT_EQ(mail["headings"]["To"], "to@example.com, second@example.com");
        EXPECT_EQ(mail["headings"]["Cc"], "cc@example.com");
        EXPECT_FALSE(mail["headings"].contains("Bcc"));
        EXPECT_EQ(mail["text"], definition.m_Text);
        EXPECT_THAT(mail["attachments"], ElementsAre("legend.txt", "Ärger – \"数\".csv", "a;b.csv", "empty_name.csv"));
        EXPECT_EQ(ReadWhole(data + "legend.txt"), "fixed");
        for (const char* const name : {"Ärger – \"数\".csv", "a;b.csv", "empty_name.csv"}) {
            EXPECT_EQ(ReadWhole(data + name), bytes);
        }
        if (!toOutbox) {
            EXPECT_EQ(mail["sender"], "gateway@example.com");
            EXPECT_THAT(mail["recipients"],
                        ElementsAre("to@example.com", "second@example.com", "cc@example.com", "hidden@example.com"));
        }
        EXPECT_THAT(EntriesOf(SpoolPath()), ElementsAre("lock"));
    }
    EXPECT_EQ(CountReports("left out: " + m_Directory.Path("missing.txt")), 2);
}

class UploadDelivery : public Delivery {};

// To where the settings say, then to a directory of the call's own.
TEST_P(UploadDelivery, EveryByteArrivesAndReplacesAnOlderFile) {
    const std::string kind = GetParam();
    const bool isLocal = kind == "directory";
    const auto server = isLocal ? nullptr : std::make_unique<TestServer>(kind);
    const Server target = isLocal ? Server{} : server->Target();
    Server own = target;
    own.m_Url = isLocal ? "file://" + m_Directory.Path("uploads/o%20wn") : own.m_Url + "o%20wn";
    const std::string bytes = BinaryBytes(300'000);
    const std::vector<std::string> files{"second.csv", "Ärger – \"数\" 100%;a#b?.csv"};
    Open(UploadTo(target));
    const bool canMakeDirectories = kind != "http";
    for (const Server& of : {Server{}, canMakeDirectories ? own : target}) {
        ASSERT_EQ(Upload(files, "older and short", of), RC_OK);
        ASSERT_EQ(Upload(files, bytes, of), RC_OK);
        ASSERT_TRUE(Drain());
        const std::string place =
            (isLocal ? m_Directory.Path("uploads/") : server->Path("")) + (of.m_Url == own.m_Url ? "o wn" : "");
        for (const auto& file : files) {
            EXPECT_EQ(ReadWhole(place + '/' + file), bytes);
            fs::remove(place + '/' + file);
        }
        fs::remove(place + "/o wn");
        EXPECT_THAT(EntriesOf(place), ElementsAre());
        EXPECT_THAT(EntriesOf(SpoolPath()), ElementsAre("lock"));
    }
    EXPECT_EQ(m_pTransports->Counters().front().m_nSent, 8U);
}

INSTANTIATE_TEST_SUITE_P(Ways, UploadDelivery, testing::Values("directory", "ftp", "http", "sftp"), NameOf);

// Where it must not go, then where it may: a stranger's server, one under another's name, one that does not know us; and
// where encryption is required, one without it.
TEST_P(Delivery, OnlyTheRightServerGetsAnything) {
    const TestServer server(GetParam());
    Server noLogin = server.Target();
    noLogin.m_Password = "s3cret-wrong";
    Server stranger = server.Target();
    stranger.m_CaFile.clear();
    stranger.m_KnownHosts = "/dev/null";
    Server open = server.Target();
    open.m_bRequireTls = true;
    const std::vector<Server> wrongOnes =
        server.IsOpen() ? std::vector{noLogin, open} : std::vector{noLogin, stranger, server.Target("localhost")};
    for (const Server& wrong : wrongOnes) {
        OpenFor(server, wrong);
        ASSERT_EQ(Send("a.csv", "stays here"), RC_OK);
        EXPECT_TRUE(WaitUntilReported(wrong.m_Url));
        EXPECT_FALSE(Drain(500));
        EXPECT_EQ(Waiting(), 1U);
        Close();
        fs::remove_all(SpoolPath());
    }
    EXPECT_THAT(EntriesOf(server.Path("")), ElementsAre());

    OpenFor(server);
    const std::string bytes = BinaryBytes(300'000);
    ASSERT_EQ(Send("a.csv", bytes), RC_OK);
    EXPECT_TRUE(Drain());
    EXPECT_THAT(server.Arrivals(), ElementsAre("a.csv"));
    EXPECT_EQ(ReadWhole(server.Path("a.csv")), bytes);
    EXPECT_EQ(CountReports("s3cret"), 0);
}

INSTANTIATE_TEST_SUITE_P(Kinds, Delivery,
                         testing::Values("smtp", "smtp-tls", "smtps", "ftp", "ftp-tls", "ftps", "http", "https",
                                         "sftp"),
                         NameOf);

} // namespace
