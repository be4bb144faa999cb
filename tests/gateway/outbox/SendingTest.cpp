#include "tests/gateway/Program.h"

#include <gmock/gmock.h>

namespace fs = std::filesystem;

namespace {

// A program of the system sends to a server that fails in some way, and that puts what it gets into "data".
class SendingTest : public testing::TestWithParam<std::tuple<std::string, std::string>> {
protected:
    SendingTest() : m_Place({Log("a-%i.csv", "A", 1), Log("b \xC3\xBC{%H%M%S%s}-%i.csv", "B", 0)}) {
        fs::create_directory("data");
        const std::string make = "openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes "
                                 "-subj /CN=test -keyout key.pem -out cert.pem -addext subjectAltName=IP:";
        EXPECT_EQ(Program(make + m_Host).Wait(), 0);
        Write("msmtprc", "account default\nhost HOST\nport 8025\nfrom g@example.com\ntls on\ntls_trust_file cert.pem\n"
                         "auth on\nuser kavro\npassword right\nlogfile /dev/stderr\n");
        Write("curlrc", "fail\nsilent\ngloboff\nnoproxy = *\nuser = kavro:right\n"
                        "write-out = \"%{onerror}%{stderr}%{errormsg}\"\n");
        Write("rclone.conf", "[dav]\ntype = webdav\nvendor = other\nurl = http://HOST:8025\nuser = kavro\n"
                             "pass = P44QTVxlQl4uEzgIqTstOcXa3jfp\n"); // "right"
    }

    SpecItems Log(const std::string& file, const std::string& name, int unicode) const {
        return {name, "kept", file, 0, 2, 0, unicode, m_bMails ? 3 : 2, 1, "daily"};
    }

    void Write(const std::string& file, const std::string& text) const {
        WriteWhole(file, std::regex_replace(text, std::regex("HOST"), m_Host));
    }

    void StartServer(const std::string& password = "right") {
        m_pServer = std::make_unique<Program>(
            m_bMails ? "/usr/bin/python3 " KVTEST_SOURCES "outbox/server.py " + m_Host + ' ' + password
                     : "rclone serve webdav data --user kavro --pass " + password + " --addr " + m_Host + ":8025");
        ASSERT_TRUE(m_pServer->Says("started"));
    }

    Program StartGateway(const std::string& timeout) const {
        const std::map<std::string, std::string> settings{
            {"msmtp", R"("mail": {"from": "g@example.com", "definitions": [{"name": "daily", "to": ["o@example.com"]}],
                "command": ["msmtp", "--file=msmtprc", "-t")"},
            {"curl",
             R"("upload": {"command": ["curl", "-K", "curlrc", "--upload-file", "{path}", "http://HOST:8025/")"},
            {"rclone", R"("upload": {"command": ["rclone", "--config", "rclone.conf", "--low-level-retries", "1",
                "--ignore-times", "copyto", "{path}", "dav:{name}")"}};
        Write("config/gateway.json", '{' + settings.at(m_Program) + R"(], "timeout": ")" + timeout +
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
    const std::string m_Host = "127.9." + std::to_string(getpid() / 256 % 256) + '.' + std::to_string(getpid() % 256);
    std::unique_ptr<Program> m_pServer;
};

// Uploads of the log A have the same name: the last one has to be there in the end. Files of B have names of their own.
TEST_P(SendingTest, EverythingArrivesInOrderOverRestarts) {
    const std::map<std::string, const char*> reasons{// by msmtp, curl and rclone
                                                     {"down", "cannot connect|Failed to connect|connection refused"},
                                                     {"refuses_one", "500 |returned error: 4|is a directory"},
                                                     {"refuses_all", "535 |returned error: 401|401 Unauthorized"},
                                                     {"hangs", "took too long"}};
    if (m_Fault == "refuses_one") {
        fs::create_directory("data/a-0.csv");
    }
    if (m_Fault != "down") {
        StartServer(m_Fault == "refuses_all" ? "wrong" : "right");
        m_pServer->Signal(m_Fault == "hangs" ? SIGSTOP : SIGCONT);
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
            EXPECT_TRUE(Eventually([] { return Contents("data").size() == Contents("kept").size(); }));
        }
        gateway.Signal(end);
        EXPECT_EQ(gateway.Wait(), end == SIGTERM ? 0 : -SIGKILL) << gateway.Errors();
    }
    m_pServer.reset();
    fs::remove("data/a-0.csv");
    StartServer();
    Program last = StartGateway("1m");
    EXPECT_EQ(last.Wait(), 0);
    EXPECT_THAT(last.Errors(), testing::HasSubstr(", 0 waiting"));
    EXPECT_EQ(Contents("data"), Contents("kept"));
}

#ifdef KV_WITHOUT_MAIL
const auto PROGRAMS = testing::Values("curl", "rclone");
#else
const auto PROGRAMS = testing::Values("msmtp", "curl", "rclone");

TEST(SendingPageTest, EveryConfigurationIsAccepted) {
    const Place place({SpecItems()});
    const std::string page = ReadWhole(KVTEST_SOURCES "../../docs/sending.md");
    const std::regex block("\n    \\{\n(     .*\n)+    \\}\n");
    std::vector<std::string> texts(std::sregex_token_iterator(page.begin(), page.end(), block), {});
    EXPECT_EQ(texts.size(), 8U);
    // The example's ways to send, with the comments taken away from one.
    const std::string start = ReadWhole(KVTEST_SOURCES "../../examples/start/gateway.json");
    const std::string bare = std::regex_replace(start, std::regex("\n  \"upload\".*"), "");
    texts.push_back(std::regex_replace(bare, std::regex("// (\"upload\".*curl)"), "$1"));
    texts.push_back(std::regex_replace(bare, std::regex("// (\"upload\".*rclone)"), "$1"));
    texts.push_back(std::regex_replace(start, std::regex("  // (  |\"mail|\\},)"), "$1"));
    for (const std::string& text : texts) {
        if (text == texts[8]) { // the example has log files of its own
            WriteWhole("config/kvLogFile.json", ReadWhole(KVTEST_SOURCES "../../examples/start/kvLogFile.json"));
        }
        WriteWhole("config/gateway.json", std::regex_replace(text, std::regex("/usr/sbin/sendmail"), "msmtp"));
        Program check = Program::Gateway("check --config config"); // with a mail program that is there
        EXPECT_EQ(check.Wait(), 0) << check.Errors() << text;
    }
}
#endif

INSTANTIATE_TEST_SUITE_P(Table, SendingTest,
                         testing::Combine(PROGRAMS, testing::Values("down", "refuses_one", "refuses_all", "hangs")),
                         [](const auto& test) { return std::get<0>(test.param) + '_' + std::get<1>(test.param); });

} // namespace
