#include "base/LittleEndian.h"
#include "base/WARM_RESTART_STRUCT.h"
#include "tests/AllocationCount.h"
#include "tests/ServiceFixture.h"

using namespace std::string_literals;

namespace {

using Texts = std::vector<std::string>;

constexpr const char* FILE_NAME = "kvLogFile.warm";
constexpr int SAVE = 1;

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

class PendingEntries : public ServiceTest {
protected:
    PendingEntries() { Configure({SpecItems{}, SpecItems{.m_Name = "Gone", .m_File = "gone.csv"}}); }

    void SnapShot(const wchar_t* name = L"Log") {
        EString to = name;
        EONEVENTSTRUCT records[3] = {MakeRecord(L"N", L"a"), MakeRecord(L"N", L"b"), MakeRecord(L"N", L"c")};
        records[1].m_Value.SetText(L"value");
        EXPECT_EQ(m_pService->LogSnapShot(to, records, 3), RC_OK);
    }
    std::string Saved() {
        EXPECT_EQ(m_pService->WarmRestart(SAVE, nullptr), RC_OK);
        return ReadWhole(FILE_NAME);
    }
    // The saved queue, which is empty afterwards.
    std::string Taken() {
        const std::string saved = Saved();
        Clear();
        return saved;
    }
    void Clear() {
        while (auto* request = static_cast<ELogInfo*>(m_pService->m_LogQueue.RemoveHead())) {
            delete request;
        }
    }
    static void Put(const std::string& bytes) {
        std::filesystem::remove(FILE_NAME); // file systems flush a file that is cut and written anew, which takes long
        WriteWhole(FILE_NAME, bytes);
    }
    EResult Restore(const std::string& bytes) {
        Put(bytes);
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
    EXPECT_EQ(Taken(), Number(1) + request);
    EXPECT_EQ(Taken(), Number(0));
    EString name = L"Log";
    EONEVENTSTRUCT records[1];
    m_pService->LogSnapShot(name, records, 0);
    EXPECT_EQ(Taken(), Number(1) + Number(3) + Characters("Log") + Number(ACTION_LOG_SNAPSHOT) + Number(0));

    const std::string bare = request.substr(0, 20) + Number(0);
    EXPECT_EQ(Restore(Number(2) + bare + request), RC_OK);
    EXPECT_EQ(Queued(), (Texts{"", "Te"}));
    EXPECT_EQ(Taken(), Number(2) + bare + request);
}

TEST_F(PendingEntries, TheKernelsOperations) {
    Alarm(L"stays");
    WARM_RESTART_STRUCT info;
    constexpr int saved = 4 + 24 + 79 + 4 * 8;
    for (const auto& [operation, size] :
         {std::pair{-1, 10000}, {4, 10000}, {1000, 10000}, {3, 10000}, {0, -1}, {2, -1}, {SAVE, saved}}) {
        WriteWhole(FILE_NAME, std::string(10000, 'x'));
        EXPECT_EQ(m_pService->WarmRestart(operation, &info), RC_OK) << operation;
        const bool exists = std::filesystem::exists(FILE_NAME);
        EXPECT_EQ(exists ? static_cast<int>(std::filesystem::file_size(FILE_NAME)) : -1, size) << operation;
        EXPECT_EQ(Queued(), Texts{"stays"}) << operation;
    }
    const std::unique_ptr<wchar_t[]> sections(info.m_pszSections);
    EXPECT_EQ(std::wstring(sections.get(), 11), std::wstring(L"kvLogFile\0\0", 11));
    EXPECT_EQ(m_pService->WarmRestart(3, nullptr), RC_ARGUMENT);

    EXPECT_EQ(m_pService->SavePendingLogEntries(L"/dev/full"), RC_WRITE);
    EXPECT_EQ(m_pService->SavePendingLogEntries(L"logs"), RC_NOT_FOUND);
    const std::string whole = ReadWhole(FILE_NAME);
    m_pService->PushLogInfo(new ELogInfo(nullptr, ACTION_LOG_ALARM, 0, nullptr));
    EXPECT_EQ(m_pService->WarmRestart(SAVE, nullptr), RC_NO_FILE_SPEC);
    EXPECT_EQ(ReadWhole(FILE_NAME), Number(2) + whole.substr(4)); // what can be saved is
}

// Every byte in turn, and every four. What was restored is processed too: a damaged request must not harm anybody.
TEST_F(PendingEntries, DamageEndsTheRestoreInBoundedMemory) {
    Alarm(L"one");
    const std::size_t first = Saved().size();
    SnapShot();
    const std::size_t second = Saved().size();
    Alarm(L"three", L"Gone");
    const std::string whole = Taken();
    const auto restore = [&](const std::string& bytes) {
        Put(bytes);
        const AllocationCount allocated;
        const EResult result = m_pService->RestorePendingLogEntries(Wide(FILE_NAME));
        EXPECT_LE(allocated.Largest(), 4 * whole.size());
        EXPECT_LE(allocated.Count(), 100U);
        EXPECT_TRUE(result == RC_OK || result == RC_READ);
        int count = 0;
        for (; auto* request = static_cast<ELogInfo*>(m_pService->m_LogQueue.RemoveHead()); ++count) {
            EXPECT_EQ(m_pService->ProcessLogFile(request) & ~RC_MISSING, 0U);
            delete request;
        }
        return std::pair{result, count};
    };
    for (std::size_t at = 0; at < whole.size(); ++at) {
        SCOPED_TRACE(at);
        const auto here = static_cast<unsigned char>(whole[at]);
        for (const int value : {0, 0x7F, 0xFF, here ^ 1, here ^ 0x80, here + 1}) {
            std::string bytes = whole;
            bytes[at] = static_cast<char>(value);
            restore(bytes);
        }
        std::string bytes = whole;
        restore(bytes.replace(at, std::min<std::size_t>(4, whole.size() - at), 4, '\xFF'));
        EXPECT_EQ(restore(whole.substr(0, at)), std::pair(RC_READ, at < first ? 0 : at < second ? 1 : 2));
    }
    EXPECT_EQ(restore(whole), std::pair(RC_OK, 3));
}

TEST_F(PendingEntries, WhatIsWholeComesBackAndTheRestIsDropped) {
    Alarm(L"first");
    const std::string first = Taken().substr(4);
    Alarm(L"last");
    const std::string last = Taken().substr(4);
    SnapShot(L"Gone");
    const std::string gone = Taken().substr(4);
    std::string removed = gone;
    removed[4] = 'X'; // "Xone" is no log file
    std::string thousands;
    for (int i = 0; i < 514; ++i) {
        thousands += i < 512 ? first : last;
    }
    struct Case {
        std::string m_File;
        Texts m_Queued;
        bool m_bReported = false;
    };
    const std::string most = Number(0xFFFFFFFF);
    const Case cases[] = {{Number(3) + first + removed + last, {"first", "last"}},
                          {Number(3) + first + removed.substr(0, removed.size() - 1), {"first"}, true},
                          {Number(3) + first + gone + last, {"first", "a,b,c", "last"}},
                          {Number(1) + first + last, {"first"}},
                          {"", {}, true},
                          {most + first + last, {"first", "last"}, true},
                          {Number(2) + first + last.substr(0, 20) + most + last.substr(24), {"first"}, true},
                          {Number(2) + first + removed.substr(0, 24) + most, {"first"}, true},
                          {Number(514) + thousands, Texts(512, "first")}};
    m_Kernel.m_Control.m_bRestoreWanted = true;
    for (const Case& of : cases) {
        SCOPED_TRACE(&of - cases);
        Put(of.m_File);
        m_pService->m_State = CKernelService::STATE_PREPARED;
        m_Kernel.m_Control.m_Calls.clear();
        for (int attempt = 0; attempt < 2; ++attempt) { // the second one restores nothing
            EXPECT_EQ(m_pService->PreStart(), RC_OK);
            EXPECT_EQ(Queued(), of.m_Queued);
        }
        EXPECT_EQ(m_Kernel.m_Control.m_Calls, of.m_bReported ? (Texts{"9(1)", "6(0)", "3", "5"}) : Texts{});
        EXPECT_EQ(ReadWhole(FILE_NAME), of.m_File);
        Clear();
    }
    EXPECT_EQ(m_Kernel.m_Reporter.Messages(), std::vector<ReportedMessage>(5, {9, 3, 138, ""}));
    EXPECT_EQ(m_pService->RestorePendingLogEntries(L"none"), RC_OK);
    m_Kernel.m_Control.m_bRestoreWanted = false;
    m_pService->m_State = CKernelService::STATE_PREPARED;
    EXPECT_EQ(m_pService->PreStart(), RC_OK);
    EXPECT_EQ(Queued(), Texts{});
}

TEST_F(PendingEntries, TheGatewayDecidesByIdentifierWhatIsTakenUp) {
    for (const int id : {3, 4}) {
        ASSERT_EQ(m_pService->Restore(0, id), RC_OK);
    }
    Alarm(L"three", L"Log@3");
    Alarm(L"four", L"Log@4");
    SnapShot(L"Gone@3");
    const std::string saved = Taken();
    for (const auto& [refused, queued] : {std::pair{std::set<int>{}, Texts{"three", "four", "a,b,c"}},
                                          {std::set<int>{3}, Texts{"four"}},
                                          {std::set<int>{3, 4}, Texts{}}}) {
        m_Kernel.m_Names.m_RefusedIds = refused;
        EXPECT_EQ(Restore(saved), RC_OK);
        EXPECT_EQ(Queued(), queued);
        Clear();
    }
}

} // namespace
