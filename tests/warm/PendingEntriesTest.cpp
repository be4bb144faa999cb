#include "base/EFileIO.h"
#include "base/LittleEndian.h"
#include "base/WARM_RESTART_STRUCT.h"
#include "tests/AllocationCount.h"
#include "tests/ServiceFixture.h"

using namespace std::string_literals;

namespace {

constexpr const char* FILE_NAME = "kvLogFile.warm";
constexpr int SAVE = 1;

std::string Number(std::uint32_t number) {
    std::string bytes(4, '\0');
    PutU32(reinterpret_cast<unsigned char*>(bytes.data()), number);
    return bytes;
}

class PendingEntries : public ServiceTest {
protected:
    PendingEntries() { Configure({SpecItems{}, SpecItems{.m_Name = "Gone", .m_File = "gone.csv"}}); }

    // The saved queue, which is empty afterwards.
    std::string Taken() {
        EXPECT_EQ(m_pService->WarmRestart(SAVE, nullptr), RC_OK);
        Clear();
        return ReadWhole(FILE_NAME);
    }
    void Clear() {
        while (auto* request = static_cast<ELogInfo*>(m_pService->m_LogQueue.RemoveHead())) {
            delete request;
        }
    }
    std::string SavedAlarm(const wchar_t* text, const wchar_t* name = L"Log") {
        Alarm(text, name);
        return Taken().substr(4);
    }
    std::string SavedSnapShot(EString name) {
        EONEVENTSTRUCT records[3] = {MakeRecord(L"N", L"a"), MakeRecord(L"N", L"b"), MakeRecord(L"N", L"c")};
        records[1].m_Value.SetText(L"value");
        EXPECT_EQ(m_pService->LogSnapShot(name, records, 3), RC_OK);
        return Taken().substr(4);
    }
    EResult RestoreFrom(const std::string& bytes) {
        WriteWhole(FILE_NAME, bytes);
        return m_pService->RestorePendingLogEntries(Wide(FILE_NAME));
    }
};

TEST_F(PendingEntries, TheBytesOfASavedRequestAreTheSameOnEveryTarget) {
    EONEVENTSTRUCT source = MakeRecord(L"N", L"Te");
    EFileIO file(L"record", EFileIO::OPEN_FOR_WRITING);
    EXPECT_TRUE(source.Save(&file));
    const std::string record = ReadWhole("record"); // whose bytes the tests of records know
    const std::string log = Number(3) + Number('L') + Number('o') + Number('g');
    const std::string request = log + Number(ACTION_LOG_ALARM) + Number(1) + record;
    Alarm(L"Te");
    EXPECT_EQ(Taken(), Number(1) + request);
    EXPECT_EQ(Taken(), Number(0));
    const std::string bare = log + Number(ACTION_LOG_SNAPSHOT) + Number(0);
    EXPECT_EQ(RestoreFrom(Number(2) + bare + request), RC_OK);
    EXPECT_EQ(Queued(), (Texts{"", "Te"}));
    EXPECT_EQ(Taken(), Number(2) + bare + request);
    EXPECT_EQ(m_pService->PreStart(), RC_OK); // which the kernel does not want to restore anything
    EXPECT_EQ(Queued(), Texts());
}

TEST_F(PendingEntries, TheKernelsOperations) {
    const std::string saved = SavedAlarm(L"stays");
    Alarm(L"stays");
    WARM_RESTART_STRUCT info;
    const std::string old(10000, 'x');
    for (const auto& [operation, file] :
         {std::pair{-1, old}, {4, old}, {1000, old}, {3, old}, {0, ""}, {2, ""}, {SAVE, Number(1) + saved}}) {
        WriteWhole(FILE_NAME, old);
        EXPECT_EQ(m_pService->WarmRestart(operation, &info), RC_OK) << operation;
        EXPECT_EQ(Found(), file.empty() ? Files() : (Files{{FILE_NAME, file}})) << operation;
        EXPECT_EQ(Queued(), Texts{"stays"}) << operation;
    }
    const std::unique_ptr<wchar_t[]> sections(info.m_pszSections);
    EXPECT_EQ(std::wstring(sections.get(), 11), std::wstring(L"kvLogFile\0\0", 11));
    EXPECT_EQ(m_pService->WarmRestart(3, nullptr), RC_ARGUMENT);
    EXPECT_EQ(m_pService->SavePendingLogEntries(L"/dev/full"), RC_WRITE);
    EXPECT_EQ(m_pService->SavePendingLogEntries(L"logs"), RC_NOT_FOUND);
    EXPECT_EQ(m_pService->RestorePendingLogEntries(L"none"), RC_OK);
    m_pService->PushLogInfo(new ELogInfo(nullptr, ACTION_LOG_ALARM, 0, nullptr));
    EXPECT_EQ(m_pService->WarmRestart(SAVE, nullptr), RC_NO_FILE_SPEC);
    EXPECT_EQ(ReadWhole(FILE_NAME), Number(2) + saved); // what can be saved is
}

// Every byte in turn, and every four. What was restored is processed too: a damaged request must not harm anybody.
TEST_F(PendingEntries, DamageEndsTheRestoreInBoundedMemory) {
    const std::string one = Number(3) + SavedAlarm(L"one");
    const std::string two = one + SavedSnapShot(L"Log");
    const std::string whole = two + SavedAlarm(L"three", L"Gone");
    const auto restore = [&](const std::string& bytes) {
        WriteWhole("warm", bytes);
        const AllocationCount allocated;
        const EResult result = m_pService->RestorePendingLogEntries(L"warm");
        EXPECT_LE(allocated.Largest(), 4 * whole.size());
        EXPECT_LE(allocated.Count(), 100U);
        EXPECT_TRUE(result == RC_OK || result == RC_READ);
        std::filesystem::remove("warm"); // file systems flush a file that is cut and written anew, which takes long
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
        std::string bytes = whole;
        for (const int value : {0, 0x7F, 0xFF, here ^ 1, here ^ 0x80, here + 1}) {
            bytes[at] = static_cast<char>(value);
            restore(bytes);
        }
        restore(bytes.replace(at, std::min<std::size_t>(4, whole.size() - at), 4, '\xFF'));
        const int left = at < one.size() ? 0 : at < two.size() ? 1 : 2;
        EXPECT_EQ(restore(whole.substr(0, at)), std::pair(RC_READ, left));
    }
    EXPECT_EQ(restore(whole), std::pair(RC_OK, 3));
}

TEST_F(PendingEntries, AFullDiskKeepsTheFirstRequests) {
    constexpr rlim_t ROOM = 100'000; // more than is written at once, less than the queue takes
    const auto text = [](int number) { return std::to_wstring(100 + number) + std::wstring(200, L'x'); };
    const std::size_t size = SavedAlarm(text(0).c_str()).size();
    Texts first;
    for (int i = 0; i < QUEUE_LIMIT; ++i) {
        Alarm(text(i).c_str());
        if (4 + first.size() * size + size <= ROOM) {
            first.push_back(std::to_string(100 + i) + std::string(200, 'x'));
        }
    }
    {
        const FullDisk disk(ROOM);
        EXPECT_EQ(m_pService->WarmRestart(SAVE, nullptr), RC_WRITE);
    }
    const std::string saved = ReadWhole(FILE_NAME);
    EXPECT_EQ(saved.size(), ROOM);
    Clear();
    EXPECT_EQ(RestoreFrom(saved), RC_READ);
    EXPECT_EQ(Queued(), first);
}

TEST_F(PendingEntries, WhatIsWholeComesBackAndTheRestIsDropped) {
    const std::string first = SavedAlarm(L"first");
    const std::string last = SavedAlarm(L"last");
    const std::string gone = SavedSnapShot(L"Gone");
    std::string removed = gone;
    removed[4] = 'X'; // "Xone" is no log file
    const std::string most = Number(0xFFFFFFFF);
    m_Kernel.m_Control.m_bRestoreWanted = true;
    const struct {
        std::string m_File;
        Texts m_Queued;
        bool m_bReported; // as damage
    } cases[] = {{Number(3) + first + removed + last, {"first", "last"}, false},
                 {Number(3) + first + removed.substr(0, removed.size() - 1), {"first"}, true},
                 {Number(3) + first + gone + last, {"first", "a,b,c", "last"}, false},
                 {Number(1) + first + last, {"first"}, false},
                 {"", {}, true},
                 {most + first + last, {"first", "last"}, true},
                 {Number(2) + first + last.substr(0, 20) + most + last.substr(24), {"first"}, true},
                 {Number(2) + first + removed.substr(0, 24) + most, {"first"}, true}};
    for (const auto& [file, queued, reported] : cases) {
        SCOPED_TRACE(file.size());
        WriteWhole(FILE_NAME, file);
        m_pService->m_State = CKernelService::STATE_PREPARED;
        m_Kernel.m_Control.m_Calls.clear();
        for (int attempt = 0; attempt < 2; ++attempt) { // the second one restores nothing
            EXPECT_EQ(m_pService->PreStart(), RC_OK);
            EXPECT_EQ(Queued(), queued);
        }
        EXPECT_EQ(m_Kernel.m_Control.m_Calls, reported ? (Texts{"9(1)", "6(0)", "3", "5"}) : Texts{});
        EXPECT_EQ(ReadWhole(FILE_NAME), file);
        Clear();
    }
    EXPECT_EQ(m_Kernel.m_Reporter.Messages(), Messages(5, {9, 3, 138, ""}));
}

TEST_F(PendingEntries, TheGatewayDecidesByIdentifierWhatIsTakenUp) {
    for (const int id : {3, 4}) {
        ASSERT_EQ(Restore(id), RC_OK);
    }
    const std::string saved =
        Number(3) + SavedAlarm(L"three", L"Log@3") + SavedAlarm(L"four", L"Log@4") + SavedSnapShot(L"Gone@3");
    for (const auto& [refused, queued] : {std::pair{std::set<int>{}, Texts{"three", "four", "a,b,c"}},
                                          {std::set<int>{3}, Texts{"four"}},
                                          {std::set<int>{3, 4}, Texts{}}}) {
        m_Kernel.m_Names.m_RefusedIds = refused;
        EXPECT_EQ(RestoreFrom(saved), RC_OK);
        EXPECT_EQ(Queued(), queued);
        Clear();
    }
}

} // namespace
