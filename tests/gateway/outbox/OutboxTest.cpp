#include "gateway/outbox/Queue.h"
#include "tests/gateway/Program.h"

#include <bit>
#include <set>

#include <sys/ptrace.h>
#include <sys/syscall.h>

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using namespace testing;

namespace {

// What the reason for a failure is, empty for a success.
std::string RunShell(const std::string& script, std::chrono::milliseconds time = 1min) {
    try {
        RunProgram({"/bin/sh", "-c", script}, "/dev/null", time, -1);
        return "";
    } catch (const std::exception& error) {
        return error.what();
    }
}

bool IsRunning(const std::string& pidFile) { // a process that is dead but not waited for has no command line
    return !ReadWhole("/proc/" + std::to_string(std::atoi(ReadWhole(pidFile).c_str())) + "/cmdline").empty();
}

// A queue whose program notes what it gets in "sent", and fails for files whose names match a line of "bad".
class QueueTest : public Test {
protected:
    QueueTest() {
        const char* const script = R"(echo "$2" >>tried
            if echo "$2" | grep -sqxf bad; then echo refused >&2; exit 1; fi
            cat "$1" >>sent)";
        m_Settings.m_Targets[NO_IDENTIFIER].m_Command = {"/bin/sh", "-c", script, "sh", "{path}", "{name}"};
        m_Settings.m_RetryMin = 100ms;
        m_Settings.m_RetryMax = 200ms;
    }

    void Open() { m_pQueue = std::make_unique<Queue>("test", "queue", m_Settings); }
    void Accept(const std::string& name, const std::string& bytes, int identifier = NO_IDENTIFIER) {
        const auto make = [bytes](const fs::path& file) { WriteWhole(file, bytes); };
        m_pQueue->Accept(identifier, name, make, [this] { ++m_nNotices; });
    }
    bool Drain() { return m_pQueue->Drain(Queue::Clock::now() + 1min); }

    Workplace m_Place;
    OutboxSettings m_Settings;
    std::atomic<int> m_nNotices = 0;
    std::unique_ptr<Queue> m_pQueue;
};

} // namespace

TEST(ProgramTest, ReportsEveryEndInItsLastLine) {
    const Workplace place;
    EXPECT_EQ(RunShell("echo warning >&2"), "");
    EXPECT_EQ(RunShell("echo first >&2; printf 'one\\rtwo\\033 last\\n\\n' >&2; exit 3"), "two  last");
    EXPECT_THROW(RunProgram({"/nonexistent"}, "/dev/null", 1min, -1), std::exception);
    EXPECT_THROW(RunProgram({"/bin/cat"}, "/nonexistent", 1min, -1), std::exception) << "not our own input";
    std::signal(SIGCHLD, SIG_IGN);
    EXPECT_NE(RunShell("exit 1"), "") << "an end that nobody tells is no success";
    std::signal(SIGCHLD, SIG_DFL);
    EXPECT_EQ(RunShell("yes overflow | head -c 300000 >&2; echo >&2; echo end >&2; exit 1"), "end");
    EXPECT_EQ(RunShell("exec 2>&-; sleep 0.1; exit 4"), "exit status 4");
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, &before);
    EXPECT_EQ(RunShell("kill -TERM $$; sleep 60"), "signal 15") << "signals are not blocked for it";
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    const int file = dup(STDERR_FILENO);
    EXPECT_EQ(RunShell("test -z \"$(ls /proc/self/fd | tail -n +5)\" || exit 1"), "") << "it has none of our files";
    close(file);
    EXPECT_EQ(RunShell("(trap '' TERM; sleep 600) & echo $! >child; echo hangs >&2; wait", 300ms),
              "killed, for it took too long: hangs");
    EXPECT_TRUE(Eventually([] { return !IsRunning("child"); }));
}

TEST_F(QueueTest, GivesNamesAndBytesAsTheyAre) {
    m_Settings.m_Targets[7].m_Command = {"/bin/sh", "-c",     "printf '%s\\n' \"$@\" >args; cat >sent",
                                         "sh",      "{path}", "<{name}> {id}"};
    Open();
    const std::string name = "{path} $(touch x); 'a\" b\\n*|ü.csv";
    const std::string bytes("\0\r\n\xFF", 4);
    Accept(name, bytes, 7);
    ASSERT_TRUE(Drain());
    EXPECT_THAT(Lines(ReadWhole("args")),
                ElementsAre(AllOf(StartsWith(fs::absolute("queue/")), HasSubstr("@7/" + name)), "<" + name + "> 7"));
    EXPECT_EQ(ReadWhole("sent"), bytes);
    EXPECT_FALSE(fs::exists("x"));
}

TEST_F(QueueTest, BlocksNobodyAndKeepsTheOrderOfANameOverARestart) {
    WriteWhole("bad", "bad.csv\n");
    Open();
    Accept("bad.csv", "bad 1\n");
    Accept("bad.csv", "bad 2\n");
    Accept("good.csv", "good 1\n");
    Accept("good.csv", "good 2\n");
    EXPECT_TRUE(Eventually([this] { return m_pQueue->Summary() == "test: 2 sent, 2 waiting"; })) << ReadWhole("sent");
    WriteWhole("bad", "bad.csv\ngood.csv\n");
    Accept("good.csv", "good 3\n");
    m_pQueue.reset();
    EXPECT_THAT(Contents("queue"), SizeIs(3));
    Open();
    EXPECT_THROW(Queue("another", "queue", m_Settings), std::exception);
    Accept("good.csv", "good 4\n");
    fs::remove("bad");
    ASSERT_TRUE(Drain());
    EXPECT_THAT(Contents("queue"), IsEmpty());
    std::vector<std::string> sent = Lines(ReadWhole("sent"));
    std::stable_sort(sent.begin(), sent.end(), [](const auto& a, const auto& b) { return a[0] < b[0]; });
    EXPECT_THAT(sent, ElementsAre("bad 1", "bad 2", "good 1", "good 2", "good 3", "good 4"));
    EXPECT_EQ(m_nNotices, 6);
}

// However many wait, neither a start nor an acceptance tries them. One that is for another target is not held up.
TEST_F(QueueTest, AsksADeadTargetEverLess) {
    m_Settings.m_RetryMax = 1h;
    m_Settings.m_Targets[7].m_Directory = "seven";
    WriteWhole("bad", "[0-9]*.csv\n");
    for (int i = 1; i <= 1000; ++i) {
        const std::string number = std::to_string(i);
        fs::create_directories("queue/" + number);
        WriteWhole("queue/" + number + '/' + number + ".csv", "x");
    }
    const auto begin = Queue::Clock::now();
    Open();
    for (int i = 0; i < 10; ++i) {
        Accept(std::to_string(i) + "-new.csv", "x");
    }
    EXPECT_EQ(m_nNotices, 10);
    Accept("alive.csv", "x", 7);
    std::vector<std::string> tried;
    EXPECT_TRUE(Eventually([&] { return (tried = Lines(ReadWhole("tried"))).size() >= 6; }));
    // Two at once, then one after 100, 200, 400 ms ...
    EXPECT_LE(tried.size(), 2U + std::bit_width(std::uint64_t((Queue::Clock::now() - begin) / 100ms + 1)));
    EXPECT_THAT(std::set(tried.begin(), tried.end()), SizeIs(tried.size())) << "always another one";
    EXPECT_EQ(tried[0] + tried[1], "1.csv2.csv");
    EXPECT_EQ(m_pQueue->Summary(), "test: 1 sent, 1010 waiting");
}

TEST_F(QueueTest, HoldsTheLimitByTheOldest) {
    m_Settings.m_Targets[NO_IDENTIFIER] = {};
    m_Settings.m_nLimit = 25;
    Open();
    internal::CaptureStderr();
    for (const char digit : {'1', '2', '3', '4'}) {
        Accept("", std::string(10, digit));
    }
    EXPECT_THAT(Contents("queue"), ElementsAre(Pair(_, "3333333333"), Pair(_, "4444444444")));
    fs::remove("queue/" + Contents("queue").begin()->first); // what is taken out takes no room
    Accept("", std::string(10, '5'));
    EXPECT_THAT(Contents("queue"), ElementsAre(Pair(_, "4444444444"), Pair(_, "5555555555")));
    m_pQueue.reset();
    m_Settings.m_nLimit = 15;
    Open(); // holds the lower limit at once
    EXPECT_THAT(Contents("queue"), ElementsAre(Pair(_, "5555555555")));
    Accept("", std::string(100, '6'));
    EXPECT_THAT(Contents("queue"), SizeIs(1));
    EXPECT_THAT(Lines(internal::GetCapturedStderr()), SizeIs(4)) << "each is named";
    EXPECT_TRUE(Drain()) << "without a target they wait for nobody";
}

TEST_F(QueueTest, NeverReplacesInADirectory) {
    m_Settings.m_Targets[NO_IDENTIFIER] = {{}, "a/b"};
    for (const std::string bytes : {"one", "two", "three"}) {
        Open(); // what it remembered is gone
        Accept("a.b-0.csv", bytes);
        ASSERT_TRUE(Drain());
        m_pQueue.reset();
    }
    EXPECT_THAT(Contents("a/b"),
                ElementsAre(Pair("a.b-0.csv", "one"), Pair("a.b-0~2.csv", "two"), Pair("a.b-0~3.csv", "three")));
}

TEST_F(QueueTest, AcceptsLaterWhatTheDiskCannotTake) {
    Open();
    std::optional<FullDisk> disk(1'000'000);
    const std::string first(1'000'001, '1');
    Accept("a.csv", first);
    Accept("a.csv", "second\n");
    Accept("b.csv", "other\n");
    EXPECT_TRUE(Eventually([] { return ReadWhole("sent") == "other\n" && Contents("queue").empty(); }));
    EXPECT_EQ(m_nNotices, 1);
    disk.reset();
    ASSERT_TRUE(Drain());
    EXPECT_TRUE(ReadWhole("sent") == "other\n" + first + "second\n");
    EXPECT_EQ(m_nNotices, 3);
}

TEST_F(QueueTest, StopsItsProgramAndKeepsTheEntry) {
    m_Settings.m_Targets[NO_IDENTIFIER].m_Command[2] =
        "trap 'echo asked >asked' TERM; echo $$ >pid; while :; do sleep 0.1; done";
    Open();
    Accept("a.csv", "a");
    ASSERT_TRUE(Eventually([] { return ReadWhole("pid").ends_with('\n'); }));
    m_pQueue.reset();
    EXPECT_EQ(ReadWhole("asked"), "asked\n");
    EXPECT_FALSE(IsRunning("pid"));
    EXPECT_THAT(Contents("queue"), SizeIs(1));
}

#ifdef __x86_64__ // an emulated program cannot be traced

// Runs kvgateway on the input, and kills it before its n-th call that changes a file. False when it makes fewer.
static bool RunUntilCall(const char* input, int n) {
    const std::set<std::uint64_t> calls{SYS_mkdir, SYS_rename,    SYS_renameat2, SYS_unlink,   SYS_unlinkat,
                                        SYS_rmdir, SYS_ftruncate, SYS_pwrite64,  SYS_sendfile, SYS_fsync};
    const pid_t program = fork();
    if (program == 0) {
        ptrace(PTRACE_TRACEME);
        std::freopen("errors", "w", stderr);
        execl(KVGATEWAY_PATH, "kvgateway", "run", "--config", "config", "--input", input, nullptr);
        _exit(127);
    }
    for (pid_t thread = 0; (thread = waitpid(-1, nullptr, __WALL)) > 0;) {
        ptrace(PTRACE_SETOPTIONS, thread, 0, PTRACE_O_TRACESYSGOOD | PTRACE_O_TRACECLONE | PTRACE_O_EXITKILL);
        __ptrace_syscall_info call{};
        ptrace(PTRACE_GET_SYSCALL_INFO, thread, sizeof call, &call);
        if (call.op == PTRACE_SYSCALL_INFO_ENTRY && calls.contains(call.entry.nr) && --n == 0) {
            kill(program, SIGKILL);
        }
        ptrace(PTRACE_SYSCALL, thread, 0, 0);
    }
    return n <= 0;
}

// From the request to the end, acceptance, completion and removal included: killed there, the next start goes on.
TEST(LifeTest, LosesNoRowAtAnyKill) {
    int n = 0;
    for (bool isKilled = true; isKilled; ++n) {
        const Place place({{.m_File = "log-%i.csv", .m_nDelivery = 2, .m_nKeepCopy = n % 2}},
                          R"({"upload": {"directory": "there"}})");
        WriteWhole("row", R"({"alarm": {"name": "only"}, "log": "Log"})");
        WriteWhole("deliver", R"({"action": "DoLogDelivery", "log": "Log"})");
        RunToEnd(RUN + "--input row");
        const std::string written = ReadWhole("Spool/log-0.csv");
        isKilled = RunUntilCall("deliver", n + 1);
        RunToEnd(RUN + "--input deliver");
        SCOPED_TRACE(n + 1);
        EXPECT_THAT(Contents("there"), AllOf(Contains(Key("log-0.csv")), Each(Pair(_, written))));
        EXPECT_EQ(Contents("outbox/upload").size() + Contents("Spool").size(), 0U);
        EXPECT_EQ(ReadWhole("logs/log-0.csv"), n % 2 == 1 ? written : "");
    }
    EXPECT_GT(n, 20);
}
#endif
#ifndef KV_WITHOUT_MAIL
// A mail that the disk cannot take, a file that will not be named again, and one of nobody's: none is lost by the stop,
// and the next start sends the first two.
TEST(LifeTest, HandsOverWhatAnEarlierRunLeft) {
    const Place place({{.m_Name = "Mailed", .m_File = "mailed-%i.csv", .m_nDelivery = 3, .m_Mail = "daily"},
                       {.m_Name = "Day@7", .m_File = "%Y-%S%s-%i.csv", .m_nDelivery = 2, .m_nKeepCopy = 1},
                       {.m_Name = "Year", .m_File = "year-%Y-%i.csv", .m_nDelivery = 2}},
                      R"({"identifiers": [{"id": 7}], "upload": {}, "mail": {"from": "a@b.example",
                          "definitions": [{"name": "daily", "bcc": ["c@d.example"], "text": "ä"}]}})");
    Program program("sh -c 'ulimit -f 120; exec " + RUN + "'");
    for (int i = 0; i < 1000; ++i) { // too much only as base64
        program.Write("{\"alarm\": {\"name\": \"row\"}, \"log\": \"Mailed\"}\n");
    }
    program.Write(R"({"alarm": {"identifier": 7}, "log": "Day@7"}
{"alarm": {}, "log": "Year"}
{"action": "DoLogDelivery", "log": "Mailed"}
)");
    EXPECT_TRUE(program.Says(": not accepted, and stays"));
    program.Signal(SIGTERM);
    EXPECT_EQ(program.Wait(), 0);
    EXPECT_THAT(Contents("Spool"), ElementsAre(Key(StartsWith("$tmp")), Key(StartsWith("2")), Key(StartsWith("year"))));
    WriteWhole("Spool/strange.csv", "");
    fs::create_directories("Spool/$tmp0/inner");
    fs::create_symlink("nowhere", "Spool/$tmp0/link");
    fs::create_directories("outbox/upload/1/inner");
    EXPECT_THAT(RunToEnd(RUN), AllOf(HasSubstr("Spool/strange.csv: of no log file that delivers; left alone"),
                                     HasSubstr("Spool/$tmp0/inner: not a file; left alone")));
    EXPECT_THAT(Contents("Spool"), ElementsAre(Key("$tmp0"), Key("strange.csv"), Key(StartsWith("year"))));
    ASSERT_THAT(Contents("uploads"), ElementsAre(Key(StartsWith("2"))));
    EXPECT_EQ(Contents("uploads"), Contents("logs"));
    EXPECT_EQ(fs::hard_link_count("logs/" + Contents("logs").begin()->first), 1U);
    EXPECT_THAT(Contents("outbox/mail"),
                ElementsAre(Pair(_, AllOf(HasSubstr("\nBcc: c@d.example\n"), HasSubstr("@b.example>\n"),
                                          HasSubstr("Date: "), HasSubstr("charset=iso-8859-1\n"),
                                          HasSubstr("\n\n=E4\n"), HasSubstr("mailed-0.csv")))));
}
#endif
