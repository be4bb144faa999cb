#include "gateway/outbox/Queue.h"
#include "tests/gateway/Program.h"

#include <gmock/gmock.h>

#include <cmath>
#include <set>

#include <sys/ptrace.h>
#include <sys/syscall.h>

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

std::vector<std::string> EntriesOf(const std::string& directory) {
    std::vector<std::string> names;
    std::error_code missing;
    for (const auto& entry : fs::directory_iterator(directory, missing)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

// What the reason for a failure is, empty for a success.
std::string RunShell(const std::string& script, std::chrono::milliseconds time = 1min) {
    try {
        RunProgram({"/bin/sh", "-c", script}, "/dev/null", time, -1);
        return "";
    } catch (const std::exception& error) {
        return error.what();
    }
}

bool IsRunning(const std::string& pidFile) { // a process that is dead but not waited for does not run
    const std::string state = ReadWhole("/proc/" + std::to_string(std::atoi(ReadWhole(pidFile).c_str())) + "/stat");
    return !state.empty() && state.find(") Z ") == std::string::npos;
}

// A queue whose program notes what it gets in "sent", and fails for files that are named in a line of "bad".
class QueueTest : public testing::Test {
protected:
    QueueTest() {
        WriteWhole("program", "#!/bin/sh\necho \"$2\" >>tried\n"
                              "if grep -sqx \"$2\" bad; then echo refused >&2; exit 1; fi\n"
                              "cat \"$1\" >>sent\n");
        fs::permissions("program", fs::perms::owner_all);
        m_Settings.m_Targets[NO_IDENTIFIER].m_Command = {fs::absolute("program"), "{path}", "{name}"};
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

#ifdef __x86_64__ // an emulated program cannot be traced

// Runs kvgateway on the input, and kills it before its n-th call that changes a file. False when it makes fewer.
bool RunUntilCall(const std::string& input, int n) {
    static const std::set<std::uint64_t> CALLS{SYS_mkdir, SYS_rename,    SYS_renameat2, SYS_unlink,   SYS_unlinkat,
                                               SYS_rmdir, SYS_ftruncate, SYS_pwrite64,  SYS_sendfile, SYS_fsync};
    const pid_t program = fork();
    if (program == 0) {
        ptrace(PTRACE_TRACEME);
        std::freopen("errors", "w", stderr);
        execl(KVGATEWAY_PATH, "kvgateway", "run", "--config", "config", "--input", input.c_str(), nullptr);
        _exit(127);
    }
    int status = 0;
    waitpid(program, &status, 0);
    ptrace(PTRACE_SETOPTIONS, program, 0, PTRACE_O_TRACESYSGOOD | PTRACE_O_TRACECLONE | PTRACE_O_EXITKILL);
    for (pid_t thread = program; thread > 0 && (thread != program || WIFSTOPPED(status));
         thread = waitpid(-1, &status, __WALL)) {
        __ptrace_syscall_info call{};
        ptrace(PTRACE_GET_SYSCALL_INFO, thread, sizeof call, &call);
        if (call.op == PTRACE_SYSCALL_INFO_ENTRY && CALLS.contains(call.entry.nr) && --n == 0) {
            kill(program, SIGKILL);
        }
        ptrace(PTRACE_SYSCALL, thread, 0, 0);
    }
    return n <= 0;
}

#endif

} // namespace

TEST(ProgramTest, ReportsEveryEndInItsLastLine) {
    const Workplace place;
    EXPECT_EQ(RunShell("echo warning >&2"), "");
    EXPECT_EQ(RunShell("echo first >&2; printf 'one\\rtwo\\033 last\\n\\n' >&2; exit 3"), "two  last");
    EXPECT_EQ(RunShell("exit 3"), "exit status 3");
    EXPECT_THROW(RunProgram({"/nonexistent"}, "/dev/null", 1min, -1), std::exception);
    EXPECT_THROW(RunProgram({"/bin/cat"}, "/nonexistent", 1min, -1), std::exception) << "not our own input";
    std::signal(SIGCHLD, SIG_IGN);
    EXPECT_NE(RunShell("exit 1"), "") << "an end that nobody tells is no success";
    std::signal(SIGCHLD, SIG_DFL);
    EXPECT_EQ(RunShell("kill -9 $$"), "signal 9");
    EXPECT_EQ(RunShell("yes overflow | head -c 300000 >&2; echo >&2; echo end >&2; exit 1"), "end");
    EXPECT_EQ(RunShell("exec 2>&-; sleep 0.1; exit 4"), "exit status 4");
    EXPECT_EQ(RunShell("kill -TERM $$; sleep 60"), "signal 15") << "signals are not blocked for it";
    EXPECT_EQ(RunShell("test -z \"$(ls /proc/self/fd | tail -n +5)\" || exit 1"), "") << "it has none of our files";
    // With all that it has started.
    EXPECT_EQ(RunShell("(trap '' TERM; sleep 600) & echo $! >child; echo hangs >&2; wait", 300ms),
              "killed, for it took too long: hangs");
    EXPECT_TRUE(Eventually([] { return !IsRunning("child"); }));
}

TEST_F(QueueTest, GivesNamesAndBytesAsTheyAre) {
    m_Settings.m_Targets[7].m_Command = {"/bin/sh", "-c",     "printf '%s\\n' \"$@\" >args; cat >sent",
                                         "sh",      "{path}", "<{name}> {id}"};
    Open();
    const std::string name = "$(touch x); 'a\" b\\n*|ü.csv";
    const std::string bytes("\0\r\n\xFF", 4);
    Accept(name, bytes, 7);
    ASSERT_TRUE(Drain());
    EXPECT_THAT(Lines(ReadWhole("args")),
                ElementsAre(AllOf(StartsWith(fs::absolute("queue/")), HasSubstr("@7/" + name)), "<" + name + "> 7"));
    EXPECT_EQ(ReadWhole("sent"), bytes);
    EXPECT_FALSE(fs::exists("x"));
}

// A poisoned file, one behind it, a dead target, and a start anew in between.
TEST_F(QueueTest, BlocksNobodyAndKeepsTheOrderOfANameOverARestart) {
    WriteWhole("bad", "bad.csv\n");
    Open();
    Accept("bad.csv", "bad 1\n");
    Accept("bad.csv", "bad 2\n");
    Accept("good.csv", "good 1\n");
    Accept("good.csv", "good 2\n");
    EXPECT_TRUE(Eventually([] { return ReadWhole("sent") == "good 1\ngood 2\n"; })) << ReadWhole("sent");
    WriteWhole("bad", "bad.csv\ngood.csv\n");
    Accept("good.csv", "good 3\n");
    m_pQueue.reset();
    EXPECT_EQ(EntriesOf("queue").size(), 3U);
    Open();
    EXPECT_THROW(Queue("another", "queue", m_Settings), std::exception);
    Accept("good.csv", "good 4\n");
    fs::remove("bad");
    ASSERT_TRUE(Drain());
    EXPECT_THAT(EntriesOf("queue"), ElementsAre());
    std::vector<std::string> sent = Lines(ReadWhole("sent"));
    std::stable_sort(sent.begin(), sent.end(), [](const auto& a, const auto& b) { return a[0] < b[0]; });
    EXPECT_THAT(sent, ElementsAre("bad 1", "bad 2", "good 1", "good 2", "good 3", "good 4"));
    EXPECT_EQ(m_nNotices, 6);
}

// However many wait, a dead target is asked ever less; one that is alone is not held up by it.
TEST_F(QueueTest, AsksADeadTargetEverLess) {
    m_Settings.m_RetryMax = 1h;
    m_Settings.m_Targets[7].m_Directory = "seven";
    Open();
    const auto begin = Queue::Clock::now();
    for (int i = 100; i < 150; ++i) {
        std::ofstream("bad", std::ios::app) << i << ".csv\n";
        Accept(std::to_string(i) + ".csv", "x");
    }
    Accept("alive.csv", "x", 7);
    EXPECT_TRUE(Eventually([] { return fs::exists("seven/alive.csv") && ReadWhole("tried").size() >= 6 * 8; }));
    // Two at once, then one after 100, 200, 400 ms ...
    const double past = std::chrono::duration<double, std::milli>(Queue::Clock::now() - begin).count() / 100;
    const std::vector<std::string> tried = Lines(ReadWhole("tried"));
    EXPECT_LE(static_cast<double>(tried.size()), 3 + std::log2(past + 1));
    EXPECT_EQ(std::set<std::string>(tried.begin(), tried.end()).size(), tried.size()) << "always another one";
}

// Neither a start nor an acceptance tries, or moves, what waits behind a dead target.
TEST_F(QueueTest, TakesUpAndAcceptsBehindTenThousandThatWait) {
    m_Settings.m_RetryMin = m_Settings.m_RetryMax = 1h;
    for (int i = 1; i <= 10'000; ++i) {
        const std::string name = std::to_string(i);
        std::ofstream("bad", std::ios::app) << name << ".csv\n";
        fs::create_directories("queue/" + name);
        WriteWhole("queue/" + name + '/' + name + ".csv", "x");
    }
    Open();
    Accept("new.csv", "x");
    EXPECT_EQ(m_nNotices, 1);
    EXPECT_TRUE(Eventually([] { return ReadWhole("tried") == "1.csv\n2.csv\n"; })) << ReadWhole("tried");
    EXPECT_EQ(m_pQueue->Summary(), "test: 0 sent, 10001 waiting");
}

TEST_F(QueueTest, HoldsTheLimitByTheOldest) {
    m_Settings.m_Targets[NO_IDENTIFIER] = {};
    m_Settings.m_nLimit = 25;
    Open();
    testing::internal::CaptureStderr();
    for (const char digit : {'1', '2', '3', '4'}) {
        Accept("", std::string(10, digit));
    }
    ASSERT_EQ(EntriesOf("queue").size(), 2U);
    EXPECT_EQ(ReadWhole("queue/" + EntriesOf("queue").front()), "3333333333");
    Accept("", std::string(100, '5'));
    EXPECT_EQ(EntriesOf("queue").size(), 1U);
    EXPECT_THAT(Lines(testing::internal::GetCapturedStderr()), testing::SizeIs(4)) << "each is named";
    EXPECT_TRUE(Drain()) << "without a target they wait for nobody";
}

TEST_F(QueueTest, NeverReplacesInADirectory) {
    const std::string target = "a/b";
    m_Settings.m_Targets[NO_IDENTIFIER] = {{}, target};
    for (const std::string bytes : {"one", "two", "three"}) {
        Open(); // what it remembered is gone
        Accept("a.b-0.csv", bytes);
        ASSERT_TRUE(Drain());
        m_pQueue.reset();
    }
    EXPECT_THAT(EntriesOf(target), ElementsAre("a.b-0.csv", "a.b-0~2.csv", "a.b-0~3.csv"));
    EXPECT_EQ(ReadWhole(target + "/a.b-0.csv") + ReadWhole(target + "/a.b-0~3.csv"), "onethree");
}

// A disk that is full for a while: the notice waits, and so do those of the same name that come later.
TEST_F(QueueTest, AcceptsLaterWhatTheDiskCannotTake) {
    Open();
    std::atomic<bool> isFull = true;
    const auto make = [&](const fs::path& file) {
        WriteWhole(file, "first\n");
        if (isFull) {
            throw std::system_error(ENOSPC, std::generic_category());
        }
    };
    m_pQueue->Accept(NO_IDENTIFIER, "a.csv", make, [this] { ++m_nNotices; });
    Accept("a.csv", "second\n");
    Accept("b.csv", "other\n");
    EXPECT_TRUE(Eventually([] { return ReadWhole("sent") == "other\n" && EntriesOf("queue").empty(); }));
    EXPECT_EQ(m_nNotices, 1);
    isFull = false;
    ASSERT_TRUE(Drain());
    EXPECT_EQ(ReadWhole("sent"), "other\nfirst\nsecond\n");
    EXPECT_EQ(m_nNotices, 3);
}

TEST_F(QueueTest, StopsItsProgramAndKeepsTheEntry) {
    m_Settings.m_Targets[NO_IDENTIFIER].m_Command = {"/bin/sh", "-c",
                                                     "trap 'echo asked >asked' TERM; echo $$ >pid; "
                                                     "while :; do sleep 0.1; done # {path}"};
    Open();
    Accept("a.csv", "a");
    ASSERT_TRUE(Eventually([] { return ReadWhole("pid").ends_with('\n'); }));
    m_pQueue.reset();
    EXPECT_EQ(ReadWhole("asked"), "asked\n");
    EXPECT_FALSE(IsRunning("pid"));
    EXPECT_EQ(EntriesOf("queue").size(), 1U);
}

#ifdef __x86_64__

// From the request to the end, acceptance, completion and removal included: killed there, the next start goes on.
TEST(LifeTest, LosesNoRowAtAnyKill) {
    bool isKilled = true;
    int n = 0;
    for (; isKilled; ++n) {
        const Place place({{.m_File = "log-%i.csv", .m_nDelivery = 2, .m_nKeepCopy = n % 2}},
                          R"({"upload": {"directory": "there"}})");
        WriteWhole("row", R"({"alarm": {"name": "only"}, "log": "Log"})");
        WriteWhole("deliver", R"({"action": "DoLogDelivery", "log": "Log"})");
        ASSERT_EQ(Program::Run("--input row").Wait(), 0);
        const std::string written = ReadWhole("Spool/log-0.csv");
        isKilled = RunUntilCall("deliver", n + 1);
        ASSERT_EQ(Program::Run("--input deliver").Wait(), 0);
        SCOPED_TRACE(n + 1);
        EXPECT_THAT(EntriesOf("there"), testing::Contains("log-0.csv"));
        for (const auto& name : EntriesOf("there")) {
            EXPECT_EQ(ReadWhole("there/" + name), written) << name;
        }
        EXPECT_EQ(EntriesOf("outbox/upload").size() + EntriesOf("Spool").size(), 0U);
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
                      R"({"identifiers": [{"id": 7}], "upload": {"directory": "there"},
                          "mail": {"from": "a@b.example", "definitions": [{"name": "daily", "bcc": ["c@d.example"]}]}})");
    Program program("sh -c 'ulimit -f 120; exec " KVGATEWAY_EMULATOR " " KVGATEWAY_PATH " run --config config'");
    for (int i = 0; i < 1000; ++i) { // too much only as base64
        program.Write("{\"alarm\": {\"name\": \"row\"}, \"log\": \"Mailed\"}\n");
    }
    program.Write(R"({"alarm": {"identifier": 7}, "log": "Day@7"}
{"alarm": {}, "log": "Year"}
{"action": "DoLogDelivery", "log": "Mailed"}
)");
    EXPECT_TRUE(Eventually([&] { return program.Errors().find(": not accepted, and stays") != std::string::npos; }));
    program.Signal(SIGTERM);
    EXPECT_EQ(program.Wait(), 0);
    EXPECT_THAT(EntriesOf("Spool"), ElementsAre(StartsWith("$tmp"), StartsWith("2"), StartsWith("year")));
    WriteWhole("Spool/strange.csv", "");
    fs::create_directories("Spool/$tmp0/inner");
    fs::create_symlink("nowhere", "Spool/$tmp0/link");
    fs::create_directories("outbox/upload/1/inner");
    Program again = Program::Run();
    EXPECT_EQ(again.Wait(), 0);
    EXPECT_THAT(again.Errors(), HasSubstr("Spool/strange.csv: of no log file that delivers; left alone"));
    EXPECT_THAT(EntriesOf("Spool"), ElementsAre("$tmp0", "strange.csv", StartsWith("year")));
    ASSERT_THAT(EntriesOf("there"), ElementsAre(StartsWith("2")));
    const std::string day = EntriesOf("there").front();
    EXPECT_EQ(ReadWhole("there/" + day), ReadWhole("logs/" + day));
    EXPECT_EQ(fs::hard_link_count("logs/" + day), 1U);
    ASSERT_EQ(EntriesOf("outbox/mail").size(), 1U);
    EXPECT_THAT(ReadWhole("outbox/mail/" + EntriesOf("outbox/mail").front()),
                AllOf(HasSubstr("\nBcc: c@d.example\n"), HasSubstr("\nMessage-Id: <"), HasSubstr("mailed-0.csv")));
}

#endif
