#include "tests/gateway/transport/TransportFixture.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <regex>

namespace fs = std::filesystem;
using nlohmann::json;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class Delivery : public TransportFixture, public testing::WithParamInterface<const char*> {};

const auto NAME_OF = [](const testing::TestParamInfo<const char*>& kind) { return std::string(kind.param); };

// The mail without what differs from one to the next.
std::string Steady(const std::string& mail) {
    return std::regex_replace(mail, std::regex("(Date:|Message-Id:|--?=|boundary=)[^\r]*"), "$1");
}

TEST_F(Delivery, EveryByteOfAMailArrivesAlsoInTheOutbox) {
    const TestServer server("smtp");
    const std::string bytes = BinaryBytes(300'000);
    WriteWhole("legend.txt", "fixed");
    for (const Server& target : {server.Target(), Server()}) {
        Open(MailTo(target));
        ASSERT_EQ(SendMail({"Ärger – \"数\".csv", "a;b.csv", "empty\tname.csv"}, bytes, L"Störung@7"), RC_OK);
        ASSERT_TRUE(Drain());
        EXPECT_THAT(EntriesOf("spool"), ElementsAre("lock"));
    }
    EXPECT_EQ(CountReports("left out: missing.txt"), 2);
    EXPECT_EQ(json::parse(ReadWhole(server.Path("mail.json"))),
              json::parse(ReadWhole(KVTEST_SOURCES "transport/mail/expected.json")));
    EXPECT_EQ(ReadWhole(server.Path("data/legend.txt")), "fixed");
    for (const char* const name : {"Ärger – \"数\".csv", "a;b.csv", "empty_name.csv"}) {
        EXPECT_EQ(ReadWhole(server.Path(std::string("data/") + name)), bytes);
    }
    EXPECT_EQ(Steady(ReadWhole("outbox/" + *EntriesOf("outbox").begin())), Steady(ReadWhole(server.Path("mail"))));
}

class UploadDelivery : public Delivery {};

// To where the settings say, then to a directory of the call's own.
TEST_P(UploadDelivery, EveryByteArrivesAndReplacesAnOlderFile) {
    const std::string kind = GetParam();
    const auto server = kind == "directory" ? nullptr : std::make_unique<TestServer>(kind);
    const Server target = server != nullptr ? server->Target() : Server();
    const std::string root = server != nullptr ? server->Path("data/") : "uploads/";
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
    EXPECT_THAT(EntriesOf(server.Path("data")), IsEmpty());

    OpenFor(server);
    const std::string bytes = BinaryBytes(300'000);
    ASSERT_EQ(Send("a.csv", bytes), RC_OK);
    EXPECT_TRUE(Drain());
    EXPECT_THAT(server.Arrivals(), ElementsAre("a.csv"));
    EXPECT_EQ(ReadWhole(server.Path("data/a.csv")), bytes);
    EXPECT_EQ(CountReports("s3cret"), 0);
}

INSTANTIATE_TEST_SUITE_P(Kinds, Delivery,
                         testing::Values("smtp", "smtp_tls", "smtps", "ftp", "ftp_tls", "ftps", "http", "https",
                                         "sftp"),
                         NAME_OF);

} // namespace
