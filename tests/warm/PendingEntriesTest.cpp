#include "base/LittleEndian.h"
#include "base/WARM_RESTART_STRUCT.h"
#include "tests/AllocationCount.h"
#include "tests/ServiceFixture.h"

#include <csignal>
#include <sys/resource.h>

using namespace std::string_literals;

namespace {

using Texts = std::vector<std::string>;

constexpr const char* FILE_NAME = "kvLogFile.warm";
constexpr auto DELETE_BEFORE = 0;
constexpr auto SAVE = 1;
constexpr auto DELETE_AFTER = 2;

std::string Number(std::uint32_t number) {
    unsigned char bytes[4];
    PutU32(bytes, number);
    return {bytes, bytes + 4};
}

std::string Characters(const std::string& text) {
    std::string bytes;
    for (const char character : text) {
        bytes += Number(static_cast<unsigned char>(character));
    }
    return bytes;
}

// Files of this process end at this size while it lives; longer writes fail.
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t size) : m_Signal(std::signal(SIGXFSZ, SIG_IGN)) {
        getrlimit(RLIMIT_FSIZE, &m_Before);
        const rlimit limit{size, m_Before.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit() {
        setrlimit(RLIMIT_FSIZE, &m_Before);
        std::signal(SIGXFSZ, m_Signal);
    }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

private:
    rlimit m_Before{};
    void (*m_Signal)(int);
};

class PendingEntries : public ServiceTest {
protected:
    PendingEntries() { Configure({SpecItems{}, SpecItems{.m_Name = "Gone", .m_File = "gone.csv"}}); }

    void Alarm(const wchar_t* text, const wchar_t* name = L"Log") {
        EString to = name;
        EONEVENTSTRUCT record = MakeRecord(L"N", text);
        EXPECT_EQ(m_pService->LogAlarm(to, &record), RC_OK);
    }
    void SnapShot(const wchar_t* name = L"Log") {
        EString to = name;
        EONEVENTSTRUCT records[3] = {MakeRecord(L"N", L"a"), MakeRecord(L"N", L"b"), MakeRecord(L"N", L"c")};
        records[1].m_Value.SetText(L"value");
        EXPECT_EQ(m_pService->LogSnapShot(to, records, 3), RC_OK);
    }
    // The saved queue, which is empty afterwards.
    std::string Saved() {
        EXPECT_EQ(m_pService->WarmRestart(SAVE, nullptr), RC_OK);
        Clear();
        return ReadWhole(FILE_NAME);
    }
    void Clear() {
        while (auto* request = static_cast<ELogInfo*>(m_pService->m_LogQueue.RemoveHead())) {
            delete request;
        }
    }
    EResult Restore(const std::string& bytes) {
        std::filesystem::remove(FILE_NAME); // file systems flush a file that is cut and written anew, which takes long
        WriteWhole(FILE_NAME, bytes);
        return m_pService->RestorePendingLogEntries(Wide(FILE_NAME));
    }
};

TEST_F(PendingEntries, TheBytesOfASavedRequestAreTheSameOnEveryTarget) {
    Alarm(L"Te");
    const std::string stamp = Number(1706706309) + "\x2A\0"s;
    const std::string record = stamp + Number(0) + Number(7) + "\0\0"s + Number(0) + Number(0) + Number(0) + Number(0) +
                               Number(0) + Number(0) + "\2"s + Number(192) + Number(0) + "\0\0"s + Number(17) +
                               Number(0) + Number(1) + Number(2) + Number(1) + Number(1) + Number(0) +
                               Characters("NTeSD");
    const std::string request = Number(3) + Characters("Log") + Number(ACTION_LOG_ALARM) + Number(1) + record;
    EXPECT_EQ(Saved(), Number(1) + request);
    EXPECT_EQ(Saved(), Number(0));
    EString name = L"Log";
    EONEVENTSTRUCT records[1];
    m_pService->LogSnapShot(name, records, 0);
    EXPECT_EQ(Saved(), Number(1) + Number(3) + Characters("Log") + Number(ACTION_LOG_SNAPSHOT) + Number(0));

    const std::string bare = request.substr(0, 20) + Number(0);
    EXPECT_EQ(Restore(Number(2) + bare + request), RC_OK);
    EXPECT_EQ(Queued(), (Texts{"", "Te"}));
    EXPECT_EQ(Saved(), Number(2) + bare + request);
}

TEST_F(PendingEntries, TheKernelsOperations) {
    for (const int operation : {-1, 4, 1000}) {
        WriteWhole(FILE_NAME, "left");
        EXPECT_EQ(m_pService->WarmRestart(operation, nullptr), RC_OK);
        EXPECT_EQ(ReadWhole(FILE_NAME), "left");
    }
    EXPECT_EQ(m_pService->WarmRestart(3, nullptr), RC_ARGUMENT);
    WARM_RESTART_STRUCT info;
    EXPECT_EQ(m_pService->WarmRestart(3, &info), RC_OK);
    EXPECT_EQ(std::wstring(info.m_pszSections, 11), std::wstring(L"kvLogFile\0\0", 11));
    delete[] info.m_pszSections;
    EXPECT_EQ(ReadWhole(FILE_NAME), "left");
    Alarm(L"stays");
    for (const int operation : {DELETE_BEFORE, DELETE_AFTER}) {
        EXPECT_EQ(m_pService->WarmRestart(operation, nullptr), RC_OK);
        EXPECT_FALSE(std::filesystem::exists(FILE_NAME));
        WriteWhole(FILE_NAME, std::string(10000, 'x')); // longer than what is saved next
        EXPECT_EQ(m_pService->WarmRestart(SAVE, nullptr), RC_OK);
        EXPECT_EQ(std::filesystem::file_size(FILE_NAME), 4U + 24U + 79U + 4U * 8U);
        EXPECT_EQ(Queued(), Texts{"stays"});
    }
}

TEST_F(PendingEntries, ASaveThatFailsKeepsWhatIsWhole) {
    for (const wchar_t* text : {L"one", L"two", L"three"}) {
        Alarm(text);
    }
    ASSERT_EQ(m_pService->WarmRestart(SAVE, nullptr), RC_OK);
    const std::string whole = ReadWhole(FILE_NAME);
    const std::size_t request = (whole.size() - 4 - 8) / 3; // "three" has two characters more
    for (std::size_t size = 0; size < whole.size(); ++size) {
        {
            const FileSizeLimit limit(size);
            EXPECT_EQ(m_pService->WarmRestart(SAVE, nullptr), RC_WRITE) << size;
        }
        const std::string saved = ReadWhole(FILE_NAME);
        EXPECT_EQ(saved, whole.substr(0, saved.size())) << size;
        const std::size_t kept = saved.size() < 4 ? 0 : (saved.size() - 4) / request;
        Texts texts{"one", "two", "three"};
        EXPECT_EQ(Queued(), texts);
        Clear();
        EXPECT_EQ(Restore(saved), RC_READ) << size;
        texts.resize(kept);
        EXPECT_EQ(Queued(), texts) << size;
        EXPECT_GE(saved.size() + request + 8, size); // fails no earlier than it must
        Clear();
        EXPECT_EQ(Restore(whole), RC_OK);
    }
    std::filesystem::remove(FILE_NAME);
    std::filesystem::create_directory(FILE_NAME);
    EXPECT_EQ(m_pService->WarmRestart(SAVE, nullptr), RC_NOT_FOUND);
    std::filesystem::remove(FILE_NAME);
    m_pService->PushLogInfo(new ELogInfo(nullptr, ACTION_LOG_ALARM, 0, nullptr));
    EXPECT_EQ(m_pService->WarmRestart(SAVE, nullptr), RC_NO_FILE_SPEC);
    EXPECT_EQ(ReadWhole(FILE_NAME), Number(4) + whole.substr(4));
}

// Every byte in turn, and every four. What was restored is processed too: a damaged request must not harm anybody.
TEST_F(PendingEntries, DamageEndsTheRestoreInBoundedMemory) {
    Alarm(L"one");
    SnapShot();
    Alarm(L"three", L"Gone");
    const std::string whole = Saved();
    const auto check = [&](const std::string& bytes, const std::string& what) {
        std::filesystem::remove(FILE_NAME);
        WriteWhole(FILE_NAME, bytes);
        const AllocationCount allocated;
        const EResult result = m_pService->RestorePendingLogEntries(Wide(FILE_NAME));
        EXPECT_LE(allocated.Largest(), 4 * whole.size()) << what;
        EXPECT_LE(allocated.Count(), 100U) << what;
        EXPECT_TRUE(result == RC_OK || result == RC_READ) << what;
        while (auto* request = static_cast<ELogInfo*>(m_pService->m_LogQueue.RemoveHead())) {
            EXPECT_EQ(m_pService->ProcessLogFile(request) & ~RC_MISSING, 0U) << what;
            delete request;
        }
        return result;
    };
    for (std::size_t at = 0; at < whole.size(); ++at) {
        const auto here = static_cast<unsigned char>(whole[at]);
        for (const int value : {0, 0x7F, 0xFF, here ^ 1, here ^ 0x80, here + 1}) {
            std::string bytes = whole;
            bytes[at] = static_cast<char>(value);
            check(bytes, std::to_string(value) + " at " + std::to_string(at));
        }
        std::string bytes = whole;
        bytes.replace(at, std::min<std::size_t>(4, whole.size() - at), 4, '\xFF');
        check(bytes, "-1 at " + std::to_string(at));
        EXPECT_EQ(check(whole.substr(0, at), "cut to " + std::to_string(at)), RC_READ) << at;
    }
    EXPECT_EQ(check(whole, "whole"), RC_OK);
}

TEST_F(PendingEntries, WhatIsWholeComesBackAndTheRestIsDropped) {
    const auto Request = [&](auto make) {
        make();
        return Saved().substr(4);
    };
    const std::string first = Request([&] { Alarm(L"first"); });
    const std::string last = Request([&] { Alarm(L"last"); });
    const std::string gone = Request([&] { SnapShot(L"Gone"); });
    std::string removed = gone;
    removed[4] = 'X'; // "Xone" is no log file
    std::string thousands;
    for (int i = 0; i < 514; ++i) {
        thousands += i < 512 ? first : last;
    }
    struct Case {
        std::string m_File;
        EResult m_Result;
        Texts m_Queued;
    };
    const std::string most = Number(0xFFFFFFFF);
    for (const Case& of :
         {Case{Number(3) + first + removed + last, RC_OK, {"first", "last"}},
          Case{Number(3) + first + removed.substr(0, removed.size() - 1), RC_READ, {"first"}},
          Case{Number(3) + first + gone + last, RC_OK, {"first", "a,b,c", "last"}},
          Case{Number(1) + first + last, RC_OK, {"first"}}, Case{most + first + last, RC_READ, {"first", "last"}},
          Case{Number(2) + first + last.substr(0, 20) + most + last.substr(24), RC_READ, {"first"}},
          Case{Number(2) + first + removed.substr(0, 24) + most, RC_READ, {"first"}},
          Case{Number(514) + thousands, RC_OK, Texts(512, "first")}}) {
        EXPECT_EQ(Restore(of.m_File), of.m_Result);
        EXPECT_EQ(Queued(), of.m_Queued);
        Clear();
    }
    EXPECT_EQ(m_pService->RestorePendingLogEntries(L"none"), RC_OK);
}

TEST_F(PendingEntries, TheGatewayDecidesByIdentifierWhatIsTakenUp) {
    End();
    Make();
    m_pService->PrepareToStart();
    for (const int id : {3, 4}) {
        ASSERT_EQ(m_pService->Restore(0, id), RC_OK);
    }
    Alarm(L"three", L"Log@3");
    Alarm(L"four", L"Log@4");
    SnapShot(L"Gone@3");
    Alarm(L"last", L"Gone@4");
    const std::string saved = Saved();
    for (const auto& [refused, queued] :
         {std::pair{std::set<int>{}, Texts{"three", "four", "a,b,c", "last"}},
          std::pair{std::set<int>{3}, Texts{"four", "last"}}, std::pair{std::set<int>{3, 4}, Texts{}}}) {
        m_Kernel.m_Names.m_RefusedIds = refused;
        EXPECT_EQ(Restore(saved), RC_OK);
        EXPECT_EQ(Queued(), queued);
        Clear();
    }
}

} // namespace
