#include "tests/gateway/Program.h"

#include <gmock/gmock.h>

#include <map>
#include <memory>

namespace fs = std::filesystem;
using testing::HasSubstr;

namespace {

// The files of a directory by their names.
std::map<std::string, std::string> Contents(const std::string& directory) {
    std::map<std::string, std::string> contents;
    for (const auto& entry : fs::directory_iterator(directory)) {
        if (entry.is_regular_file()) {
            contents[entry.path().filename()] = ReadWhole(entry.path());
        }
    }
    return contents;
}

// A program of the system sends to a server that fails in some way, and that puts what it gets into "data".
class SendingTest : public testing::TestWithParam<std::tuple<std::string, std::string>> {
protected:
    SendingTest() : m_Place({Log("a-%i.csv", "A", 1), Log("b \xC3\xBC{%H%M%S%s}-%i.csv", "B", 0)}) {
        fs::create_directory("data");
        fs::create_directory("kept");
        const std::string make = "openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -subj "
                                 "/CN=test -keyout key.pem -out cert.pem -addext subjectAltName=IP:";
        EXPECT_EQ(Program(make + m_Address).Wait(), 0);
        WriteWhole("msmtprc",
                   "account default\nhost " + m_Address +
                       "\nport 8025\nfrom g@example.com\ntls on\n"
                       "tls_trust_file cert.pem\nauth on\nuser kavro\npassword right\nlogfile /dev/stderr\n");
        WriteWhole("curlrc", "fail\nsilent\ngloboff\nnoproxy = *\nuser = kavro:right\n"
                             "write-out = \"%{onerror}%{stderr}%{errormsg}\"\n");
        WriteWhole("rclone.conf", "[dav]\ntype = webdav\nvendor = other\nurl = http://" + m_Address +
                                      ":8025\nuser = kavro\npass = P44QTVxlQl4uEzgIqTstOcXa3jfp\n"); // "right"
    }

    SpecItems Log(const std::string& file, const std::string& name, int unicode) const {
        return {name, "kept", file, 0, 2, 0, unicode, m_bMails ? 3 : 2, 1, "daily"};
    }

    void StartServer(const std::string& password = "right") {
        const std::string server =
            m_bMails ? "/usr/bin/python3 " KVTEST_SOURCES "outbox/server.py " + m_Address + ' ' + password
                     : "rclone --config rclone.conf serve webdav data --user kavro --pass " + password + " --addr " +
                           m_Address + ":8025";
        m_pServer = std::make_unique<Program>(server);
        ASSERT_TRUE(Eventually([&] { return m_pServer->Errors().find("started") != std::string::npos; }));
    }

    Program StartGateway(const std::string& timeout) const {
        const std::map<std::string, std::string> beginnings{
            {"msmtp", R"("mail": {"from": "g@example.com", "definitions": [{"name": "daily", "to": ["o@example.com"]}],
                "command": ["msmtp", "--file=msmtprc", "-t")"},
            {"curl", R"("upload": {"command": ["curl", "--config", "curlrc", "--upload-file", "{path}",
                "http://)" +
                         m_Address + ":8025/\""},
            {"rclone", R"("upload": {"command": ["rclone", "--config", "rclone.conf", "--low-level-retries", "1",
                "--ignore-times", "copyto", "{path}", "dav:{name}")"}};
        WriteWhole("config/gateway.json", "{" + beginnings.at(m_Program) + R"(], "timeout": ")" + timeout +
                                              R"(", "retryMin": "100ms", "retryMax": "500ms"}})");
        return Program::Run();
    }

    // Logs a text and has it delivered. The copy that is kept appears when the gateway has accepted the file.
    static void Send(Program& gateway, const std::string& log, const std::string& text) {
        const auto before = Contents("kept");
        gateway.Write(R"({"action": "DoLogEventToFile", "log": ")" + log + R"(", "records": [{"text": ")" + text +
                      "\"}]}\n" + R"({"action": "DoLogDelivery", "log": ")" + log + "\"}\n");
        ASSERT_TRUE(Eventually([&] { return Contents("kept") != before; })) << gateway.Errors();
    }

    const std::string m_Program = std::get<0>(GetParam());
    const std::string m_Fault = std::get<1>(GetParam());
    const bool m_bMails = m_Program == "msmtp";
    const Place m_Place;
    // Of this process, so that the port is free.
    const std::string m_Address =
        "127.9." + std::to_string(getpid() / 256 % 256) + '.' + std::to_string(getpid() % 256);
    std::unique_ptr<Program> m_pServer;
};

// Uploads of the log A have the same name: the last one has to be there in the end. Files of B have names of their own.
TEST_P(SendingTest, EverythingArrivesInOrderOverRestarts) {
    const std::map<std::string, const char*> reasons{// by msmtp, curl and rclone
                                                     {"down", "cannot connect|Failed to connect|connection refused"},
                                                     {"refuses_one", "550 |returned error: 4|is a directory"},
                                                     {"refuses_all", "535 |returned error: 401|401 Unauthorized"},
                                                     {"hangs", "took too long"}};
    if (m_Fault == "refuses_one") {
        fs::create_directory("data/a-0.csv");
    }
    if (m_Fault != "down") {
        StartServer(m_Fault == "refuses_all" ? "wrong" : "right");
    }
    if (m_Fault == "hangs") {
        m_pServer->Signal(SIGSTOP);
    }
    for (const int end : {SIGTERM, SIGKILL}) {
        const std::string text = end == SIGTERM ? "\xC3\xBC first" : "\xC3\xBC later"; // of the same length
        Program gateway = StartGateway(m_Fault == "hangs" ? "1s" : "1m");
        if (end == SIGTERM || !m_bMails) { // mails replace nothing, and come in any order
            Send(gateway, "A", text);
        }
        Send(gateway, "B", text + std::string(3000, 'x')); // longer than a mail's lines
        const std::regex reason(reasons.at(m_Fault));
        EXPECT_TRUE(Eventually([&] { return std::regex_search(gateway.Errors(), reason); })) << gateway.Errors();
        if (m_Fault == "refuses_one") { // and holds up nothing else
            EXPECT_TRUE(Eventually([&] { return Contents("data").size() == Contents("kept").size() - 1; }));
        }
        gateway.Signal(end);
        EXPECT_EQ(gateway.Wait(), end == SIGTERM ? 0 : -SIGKILL) << gateway.Errors();
    }
    m_pServer.reset();
    fs::remove("data/a-0.csv");
    StartServer();
    Program last = StartGateway("1m");
    Eventually([] { return Contents("data") == Contents("kept"); });
    EXPECT_EQ(last.Wait(), 0);
    EXPECT_THAT(last.Errors(), HasSubstr(", 0 waiting"));
    EXPECT_EQ(Contents("data"), Contents("kept"));
}

#ifdef KV_WITHOUT_MAIL
const auto PROGRAMS = testing::Values("curl", "rclone");
#else
const auto PROGRAMS = testing::Values("msmtp", "curl", "rclone");

void ExpectAccepted(const std::string& configuration) {
    // A mail system may be missing.
    WriteWhole("config/gateway.json", std::regex_replace(configuration, std::regex("/usr/sbin/sendmail"), "msmtp"));
    Program check = Program::Gateway("check --config config");
    EXPECT_EQ(check.Wait(), 0) << check.Errors() << configuration;
}

TEST(SendingPageTest, EveryConfigurationIsAccepted) {
    const Place place({SpecItems()});
    const std::string page = ReadWhole(KVTEST_SOURCES "../../docs/sending.md");
    const std::regex block("\n    \\{\n(     .*\n)+    \\}\n");
    int found = 0;
    for (std::sregex_iterator match(page.begin(), page.end(), block), end; match != end; ++match, ++found) {
        ExpectAccepted(match->str());
    }
    EXPECT_EQ(found, 8);

    // The example, with its comments in place of what they stand for.
    WriteWhole("config/kvLogFile.json", ReadWhole(KVTEST_SOURCES "../../examples/start/kvLogFile.json"));
    const std::string start = ReadWhole(KVTEST_SOURCES "../../examples/start/gateway.json");
    const std::string bare = std::regex_replace(start, std::regex("\n  \"upload\".*"), "");
    for (const char* const comment : {"(\"upload\".*curl)", "(\"upload\".*rclone)"}) {
        ExpectAccepted(std::regex_replace(bare, std::regex(std::string("// ") + comment), "$1"));
    }
    ExpectAccepted(std::regex_replace(start, std::regex("  // (  |\"mail|\\},)"), "$1"));
}

#endif

INSTANTIATE_TEST_SUITE_P(Table, SendingTest,
                         testing::Combine(PROGRAMS, testing::Values("down", "refuses_one", "refuses_all", "hangs")),
                         [](const auto& test) { return std::get<0>(test.param) + '_' + std::get<1>(test.param); });

} // namespace
