#include "tests/gateway/Program.h"

namespace fs = std::filesystem;

namespace {

// A program of the system sends to a server, which puts what it gets into "data".
class SendingTest : public testing::TestWithParam<std::string> {
protected:
    SendingTest()
        : m_Place({{"A", "kept", "a-%i.csv", 0, 2, 0, 1, m_bMails ? 3 : 2, 1, "daily"},
                   {"B", "kept", "b \xC3\xBC{%H%M%S%s}-%i.csv", 0, 2, 0, 0, m_bMails ? 3 : 2, 1, "daily"}}) {
        fs::create_directory("data");
        Write("msmtprc", "account default\nhost HOST\nport 8025\nfrom g@example.com\n"
                         "auth plain\ntls off\nuser kavro\npassword right\nlogfile /dev/stderr\n");
        Write("curlrc", "fail\nsilent\ngloboff\nnoproxy = *\nuser = kavro:right\n"
                        "write-out = \"%{onerror}%{stderr}%{errormsg}\"\n");
        Write("rclone.conf", "[dav]\ntype = webdav\nvendor = other\nurl = http://HOST:8025\nuser = kavro\n"
                             "pass = P44QTVxlQl4uEzgIqTstOcXa3jfp\n"); // "right"
        const std::map<std::string, std::string> ways{
            {"msmtp", R"("mail": {"from": "g@example.com", "definitions": [{"name": "daily", "to": ["o@example.com"]}],
                "command": ["msmtp", "--file=msmtprc", "-t")"},
            {"curl",
             R"("upload": {"command": ["curl", "-K", "curlrc", "--upload-file", "{path}", "http://HOST:8025/")"},
            {"rclone", R"("upload": {"command": ["rclone", "--config", "rclone.conf", "--low-level-retries", "1",
                "--ignore-times", "copyto", "{path}", "dav:{name}")"}};
        Write("config/gateway.json",
              '{' + ways.at(GetParam()) + R"(], "timeout": "3s", "retryMin": "100ms", "retryMax": "500ms"}})");
    }

    void Write(const std::string& file, const std::string& text) const {
        WriteWhole(file, std::regex_replace(text, std::regex("HOST"), m_Host));
    }

    void StartServer(const std::string& password) {
        m_pServer = std::make_unique<Program>(
            m_bMails ? "/usr/bin/python3 " KVTEST_SOURCES "outbox/server.py " + m_Host + ' ' + password
                     : "rclone serve webdav data --user kavro --pass " + password + " --addr " + m_Host + ":8025");
        ASSERT_TRUE(m_pServer->Says("started"));
    }

    // Logs a text and has it delivered. The copy that is kept appears when the gateway has accepted the file.
    static void Send(Program& gateway, const std::string& log, const std::string& text) {
        const auto before = Contents("kept");
        gateway.Write(R"({"action": "DoLogEventToFile", "log": ")" + log + R"(", "records": [{"text": ")" + text +
                      "\"}]}\n" + R"({"action": "DoLogDelivery", "log": ")" + log + "\"}\n");
        ASSERT_TRUE(Eventually([&] { return Contents("kept") != before; })) << gateway.Errors();
    }

    const bool m_bMails = GetParam() == "msmtp";
    const Place m_Place;
    // Of this process, so that the port is free.
    const std::string m_Host = "127.9." + std::to_string(getpid() / 256 % 256) + '.' + std::to_string(getpid() % 256);
    std::unique_ptr<Program> m_pServer;
};

// Uploads of the log A have the same name: the last one has to be there in the end. Files of B have names of their own.
TEST_P(SendingTest, EverythingArrivesInOrderOverFaultsAndRestarts) {
    const struct {
        std::string m_Text;     // all of the same length
        std::string m_Password; // of the server: none is there, it refuses, it hangs
        std::string m_Reason;   // by msmtp, curl and rclone
        int m_nEnd;
    } faults[] = {
        {"\xC3\xBC down", "", "cannot connect|Failed to connect|connection refused", SIGTERM},
        {"\xC3\xBC deny", "wrong", "535 |returned error: 401|401 Unauthorized", SIGKILL},
        {"\xC3\xBC hang", "right", "took too long", SIGTERM},
    };
    for (const auto& fault : faults) {
        if (!fault.m_Password.empty()) {
            StartServer(fault.m_Password);
            m_pServer->Signal(fault.m_Password == "right" ? SIGSTOP : SIGCONT);
        }
        Program gateway(RUN);
        if (fault.m_Password.empty() || !m_bMails) { // mails replace nothing, and come in any order
            Send(gateway, "A", fault.m_Text);
        }
        Send(gateway, "B", fault.m_Text + std::string(3000, 'x')); // longer than a mail's lines
        const std::regex reason(fault.m_Reason);
        EXPECT_TRUE(Eventually([&] { return std::regex_search(gateway.Errors(), reason); })) << gateway.Errors();
        gateway.Signal(fault.m_nEnd);
        EXPECT_EQ(gateway.Wait(), fault.m_nEnd == SIGTERM ? 0 : -SIGKILL) << gateway.Errors();
        m_pServer.reset();
    }
    StartServer("right");
    EXPECT_THAT(RunToEnd(RUN), testing::HasSubstr(", 0 waiting"));
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
        RunToEnd(CHECK); // with a mail program that is there
    }
}
#endif

INSTANTIATE_TEST_SUITE_P(Table, SendingTest, PROGRAMS, [](const auto& test) { return test.param; });

} // namespace
