#include "tests/gateway/transport/TransportFixture.h"

#include <csignal>
#include <fstream>
#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <random>
#include <regex>
#include <set>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace fs = std::filesystem;
using nlohmann::json;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAreArray;

namespace {

// Every byte value, long lines, and lines that begin with dots.
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
        OpenForMails(target);
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
    OpenForUploads(target);
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
    EXPECT_EQ(m_pTransports->Counters().front().m_nSent, 8U);
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

// A kind of server, and what is wrong with it.
class Outage : public TransportFixture, public testing::WithParamInterface<std::tuple<std::string, std::string>> {};

TEST_P(Outage, EverythingArrivesOnceAfterwards) {
    const auto [kind, fault] = GetParam();
    TestServer server(kind);
    server.SetFault(fault);
    OpenFor(server);
    const Names names{"first.csv", "second.csv", "third.csv"};
    const std::string bytes = BinaryBytes(100'000);
    for (const auto& name : names) {
        ASSERT_EQ(Send(name, bytes), RC_OK);
    }
    ASSERT_TRUE(WaitUntilReported("tried again in"));
    EXPECT_FALSE(Drain(300));
    OpenFor(server); // what an earlier run left goes out as well
    EXPECT_FALSE(Drain(300));
    EXPECT_EQ(Waiting(), 3U);
    EXPECT_THAT(server.Arrivals(), IsEmpty());

    server.SetFault("");
    EXPECT_TRUE(Drain());
    EXPECT_EQ(Waiting(), 0U);
    EXPECT_THAT(server.Arrivals(), UnorderedElementsAreArray(names));
    if (fault == "down") {
        EXPECT_EQ(server.Arrivals(), names);
    }
    for (const auto& name : names) {
        EXPECT_EQ(ReadWhole(server.Path("data/" + name)), bytes);
        EXPECT_FALSE(fs::exists(server.Path("data/" + name + ".part")));
    }
}

const auto OUTAGE_NAME = [](const auto& outage) { return std::get<0>(outage.param) + '_' + std::get<1>(outage.param); };

INSTANTIATE_TEST_SUITE_P(Faults, Outage,
                         testing::Combine(testing::Values("smtp", "ftp", "http", "sftp"),
                                          testing::Values("down", "refuse", "stall", "cut")),
                         OUTAGE_NAME);
INSTANTIATE_TEST_SUITE_P(Part, Outage, testing::Values(std::tuple<std::string, std::string>("ftp", "part")),
                         OUTAGE_NAME);

TEST_F(Outage, StoppingDoesNotWaitForAHangingServer) {
    m_Spool.m_nStallTimeout = 3600;
    for (const char* const kind : {"smtp", "ftp", "http"}) {
        TestServer server(kind);
        server.SetFault("stall");
        OpenFor(server);
        ASSERT_EQ(Send("a.csv", BinaryBytes(100'000)), RC_OK);
        std::this_thread::sleep_for(std::chrono::milliseconds(500)); // the transfer has begun, and hangs
        Close();
        fs::remove_all("spool");
    }
}

TEST_F(Outage, ADeadServerIsNotAskedAllTheTimeWhileDraining) {
    m_Spool.m_nRetryMin = m_Spool.m_nRetryMax = 600;
    TestServer server("ftp");
    server.SetFault("down");
    OpenFor(server);
    ASSERT_EQ(Send("a.csv", "a"), RC_OK);
    ASSERT_TRUE(WaitUntilReported("tried again in"));
    for (int i = 0; i < 20; ++i) {
        EXPECT_FALSE(Drain(100));
    }
    EXPECT_EQ(CountReports("tried again in"), 2);
}

TEST_F(Outage, WhatIsRefusedHoldsUpNothingElse) {
    TestServer mailServer("smtp");
    mailServer.SetFault("refuse gone@");
    OpenFor(mailServer);
    ASSERT_EQ(SendMail({"first.csv"}, "1", L"Gone"), RC_OK);
    ASSERT_TRUE(WaitUntilReported("550 5.1.1 no such mailbox"));
    ASSERT_EQ(SendMail({"second.csv"}, "2"), RC_OK);
    EXPECT_TRUE(Eventually([this] { return Waiting() == 1; }));
    EXPECT_THAT(mailServer.Arrivals(), ElementsAre("second.csv"));
    Close();
    fs::remove_all("spool");

    // The younger version of a file must not be replaced by the older one that was held up.
    TestServer server("ftp");
    server.SetFault("refuse held.csv");
    OpenFor(server);
    ASSERT_EQ(Upload({"held.csv", "with-it.csv"}, "older"), RC_OK);
    ASSERT_EQ(Upload({"held.csv"}, "younger"), RC_OK);
    ASSERT_EQ(Upload({"other.csv"}, "other"), RC_OK);
    ASSERT_TRUE(WaitUntilReported("550 Not here"));
    EXPECT_TRUE(Eventually([this] { return Waiting() == 2; }));
    EXPECT_THAT(server.Arrivals(), ElementsAre("with-it.csv", "other.csv"));
    server.SetFault("");
    EXPECT_TRUE(Drain());
    EXPECT_THAT(server.Arrivals(), ElementsAre("with-it.csv", "other.csv", "held.csv", "held.csv"));
    EXPECT_EQ(CountReports("; job 1 is tried again"), CountReports("tried again")) << "the server is not to blame";
    EXPECT_EQ(ReadWhole(server.Path("data/held.csv")), "younger");
}

TEST_F(Outage, AFullSpoolRefusesUntilThereIsRoom) {
    m_Spool.m_nLimit = 100'000;
    TestServer server("ftp");
    server.SetFault("down");
    OpenFor(server);
    const std::string bytes = BinaryBytes(40'000);
    ASSERT_EQ(Upload({"first.csv"}, bytes), RC_OK);
    ASSERT_EQ(Upload({"second.csv"}, bytes), RC_OK);
    for (const char* const name : {"third.csv", "fourth.csv"}) {
        EXPECT_EQ(Upload({name}, bytes), RC_WRITE);
        EXPECT_TRUE(fs::exists(std::string("job/") + name));
        EXPECT_EQ(CountReports(std::string("upload: ") + name), 1);
        OpenFor(server); // what an earlier run left takes its room
    }
    EXPECT_EQ(Upload({"small.csv"}, "x"), RC_OK);
    server.SetFault("");
    EXPECT_TRUE(Drain());
    EXPECT_EQ(Upload({"third.csv"}, bytes), RC_OK);
    EXPECT_TRUE(Drain());
    EXPECT_THAT(server.Arrivals(), ElementsAre("first.csv", "second.csv", "small.csv", "third.csv"));
}

TEST_F(Outage, LeftoversOfACrashAreClearedAndDamageIsSetAside) {
    Server unreachable;
    unreachable.m_Url = "ftp://127.0.0.1:1/";
    OpenForUploads(unreachable);
    ASSERT_EQ(Upload({"first.csv", "second.csv"}, "good"), RC_OK);
    const UploadSettings settings{{}, "uploads", m_Spool};
    EXPECT_THROW(MakeTransports(nullptr, &settings, nullptr), std::runtime_error)
        << "two programs must not send the same jobs";
    Close();
    for (const char* const name : {"0000000000000008.data", "0000000000000009.json.part-", "0000000000000005.data"}) {
        WriteWhole(std::string("spool/") + name, "left");
    }
    WriteWhole("spool/0000000000000005.json", "{\"version\": 1, \"name\": ");

    OpenForUploads();
    EXPECT_TRUE(Drain());
    EXPECT_THAT(EntriesOf("uploads"), ElementsAre("first.csv", "second.csv"));
    EXPECT_THAT(EntriesOf("spool"), ElementsAre("0000000000000005.bad", "0000000000000005.data", "lock"));
    EXPECT_EQ(CountReports("0000000000000005.bad"), 1);
}

// Children are killed while mails are handed over and written into the outbox; each that was accepted is there once.
TEST_F(Outage, WhatWasAcceptedBeforeAKillArrivesOnce) {
    constexpr int ROUNDS = 10;
    std::mt19937 random(7);
    for (int round = 0; round < ROUNDS; ++round) {
        const std::string before = ReadWhole("accepted");
        const pid_t child = fork();
        if (child == 0) {
            OpenForMails();
            for (int i = 0;; ++i) {
                const std::string name = "mail-" + std::to_string(round) + '-' + std::to_string(i) + ".csv";
                if (SendMail({name}, BinaryBytes(5000)) == RC_OK) {
                    std::ofstream("accepted", std::ios::app) << name + '\n';
                }
            }
        }
        Eventually([&] { return ReadWhole("accepted") != before; });
        std::this_thread::sleep_for(std::chrono::milliseconds(random() % 100));
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
    }
    OpenForMails();
    EXPECT_TRUE(Drain());

    std::multiset<std::string> arrived;
    for (const auto& mail : EntriesOf("outbox")) {
        if (mail.ends_with(".eml")) {
            const std::string text = ReadWhole("outbox/" + mail);
            const std::size_t name = text.find("filename=") + 9;
            arrived.insert(text.substr(name, text.find("\r\n", name) - name));
        }
    }
    const Names accepted = Lines(ReadWhole("accepted"));
    for (const auto& name : accepted) {
        EXPECT_EQ(arrived.count(name), 1U) << name;
    }
    // A mail may have been accepted without the killed child's coming to say so.
    EXPECT_LE(arrived.size(), accepted.size() + ROUNDS);
}

} // namespace
