#include "tests/gateway/transport/TransportFixture.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

namespace fs = std::filesystem;
using nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

class Delivery : public TransportFixture, public testing::WithParamInterface<const char*> {};

const auto NAME_OF = [](const testing::TestParamInfo<const char*>& kind) { return std::string(kind.param); };

TEST_F(Delivery, EveryByteOfAMailArrives) {
    const TestServer server("smtp");
    MailSettings settings = MailTo(server.Target());
    WriteWhole("legend.txt", "fixed");
    const MailDefinition definition{"Störung@7",
                                    {"to@example.com", "second@example.com"},
                                    {"cc@example.com"},
                                    {"hidden@example.com"},
                                    "Störung – Überlauf 数据: " + std::string(100, 'x') + " Ende",
                                    "Füllstand\n.\n..\n.begins with a dot\n\nEnde" + std::string(2000, 'y'),
                                    {"legend.txt", "missing.txt"}};
    settings.m_Definitions = {definition};
    const Names names{"Ärger – \"数\".csv", "a;b.csv", "empty\tname.csv"};
    const std::string bytes = BinaryBytes(300'000);
    for (const bool toOutbox : {false, true}) {
        settings.m_Url = toOutbox ? "" : settings.m_Url;
        Open(settings);
        ASSERT_EQ(SendMail(names, bytes, L"Störung@7"), RC_OK);
        ASSERT_TRUE(Drain());
        if (toOutbox) {
            const std::string mail = "outbox/" + *EntriesOf("outbox").begin();
            EXPECT_THAT(ReadWhole(mail), Not(HasSubstr("hidden")));
            TestServer::Parse(mail, ".");
        }
        const std::string data = toOutbox ? "data/" : server.Path("");
        json mail = json::parse(ReadWhole(data + "mail.json"));
        for (const char* const varying : {"Date", "Message-Id", "Content-Type"}) {
            EXPECT_EQ(mail["headings"].erase(varying), 1U) << varying;
        }
        json expected = {{"headings",
                          {{"MIME-Version", "1.0"},
                           {"From", settings.m_From},
                           {"To", "to@example.com, second@example.com"},
                           {"Cc", "cc@example.com"},
                           {"Subject", definition.m_Subject}}},
                         {"text", definition.m_Text},
                         {"attachments", {"legend.txt", names[0], names[1], "empty_name.csv"}}};
        if (!toOutbox) {
            expected["sender"] = settings.m_From;
            expected["recipients"] = {"to@example.com", "second@example.com", "cc@example.com", "hidden@example.com"};
        }
        EXPECT_EQ(mail, expected);
        EXPECT_EQ(ReadWhole(data + "legend.txt"), "fixed");
        for (const std::string& name : {names[0], names[1], std::string("empty_name.csv")}) {
            EXPECT_EQ(ReadWhole(data + name), bytes);
        }
        EXPECT_THAT(EntriesOf("spool"), ElementsAre("lock"));
    }
    EXPECT_EQ(CountReports("left out: missing.txt"), 2);
}

class UploadDelivery : public Delivery {};

// To where the settings say, then to a directory of the call's own.
TEST_P(UploadDelivery, EveryByteArrivesAndReplacesAnOlderFile) {
    const std::string kind = GetParam();
    const auto server = kind == "directory" ? nullptr : std::make_unique<TestServer>(kind);
    const Server target = server != nullptr ? server->Target() : Server();
    const std::string root = server != nullptr ? server->Path("") : "uploads/";
    Server own = target;
    own.m_Url = (server != nullptr ? target.m_Url : "file://" + fs::absolute(root).string()) + "o%20wn";
    const std::string bytes = BinaryBytes(300'000);
    const Names files{"second.csv", "Ärger – \"数\" 100%;a#b?.csv"};
    Open(UploadTo(target));
    for (const bool isOwn : {false, kind != "http"}) { // which makes no directories
        const Server& of = isOwn ? own : Server();
        ASSERT_EQ(Upload(files, "older and short", of), RC_OK);
        ASSERT_EQ(Upload(files, bytes, of), RC_OK);
        ASSERT_TRUE(Drain());
        for (const auto& file : files) {
            EXPECT_EQ(ReadWhole(root + (isOwn ? "o wn/" : "") + file), bytes);
            fs::remove(root + (isOwn ? "o wn/" : "") + file);
        }
        fs::remove(root + "o wn");
        EXPECT_THAT(EntriesOf(root), IsEmpty());
        EXPECT_THAT(EntriesOf("spool"), ElementsAre("lock"));
    }
    EXPECT_EQ(m_pTransports->Counters().m_nFilesSent, 8U);
}

INSTANTIATE_TEST_SUITE_P(Ways, UploadDelivery, testing::Values("directory", "ftp", "http", "sftp"), NAME_OF);

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
        fs::remove_all("spool");
    }
    EXPECT_THAT(EntriesOf(server.Path("")), IsEmpty());

    OpenFor(server);
    const std::string bytes = BinaryBytes(300'000);
    ASSERT_EQ(Send("a.csv", bytes), RC_OK);
    EXPECT_TRUE(Drain());
    EXPECT_THAT(server.Arrivals(), ElementsAre("a.csv"));
    EXPECT_EQ(ReadWhole(server.Path("a.csv")), bytes);
    EXPECT_EQ(CountReports("s3cret"), 0);
}

INSTANTIATE_TEST_SUITE_P(Kinds, Delivery,
                         testing::Values("smtp", "smtp_tls", "smtps", "ftp", "ftp_tls", "ftps", "http", "https",
                                         "sftp"),
                         NAME_OF);

} // namespace
