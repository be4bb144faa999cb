#include "base/EFileIO.h"
#include "base/WARM_RESTART_STRUCT.h"
#include "tests/ServiceFixture.h"

#include <cstring>

namespace {

constexpr const char* FILE_NAME = "kvLogFile.warm";

std::string Number(std::uint32_t number) {
    std::string bytes(4, '\0');
    std::memcpy(bytes.data(), &number, sizeof number);
    return bytes;
}

class PendingEntries : public ServiceTest {
protected:
    PendingEntries() { Configure({SpecItems{}, SpecItems{.m_Name = "Gone", .m_File = "gone.csv"}}); }

    // The saved queue, which is empty afterwards.
    std::string Taken() {
        EXPECT_EQ(m_pService->WarmRestart(WR_SAVE, nullptr), RC_OK);
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
};

TEST_F(PendingEntries, TheBytesOfASavedRequestAreTheSameOnEveryTarget) {
    EFileIO file(L"record", EFileIO::OPEN_FOR_WRITING);
    EXPECT_TRUE(MakeRecord(L"N", L"Te").Save(&file)); // the tests of records know its bytes
    const std::string log = Number(3) + Number('L') + Number('o') + Number('g');
    const std::string alarm = log + Number(ACTION_LOG_ALARM) + Number(1) + ReadWhole("record");
    const std::string bare = log + Number(ACTION_LOG_SNAPSHOT) + Number(0);
    EXPECT_EQ(SavedAlarm(L"Te"), alarm);
    EXPECT_EQ(Taken(), Number(0));
    WriteWhole("both", Number(2) + bare + alarm);
    EXPECT_EQ(m_pService->RestorePendingLogEntries(L"both"), RC_OK);
    EXPECT_EQ(Queued(), (Texts{"", "Te"}));
    EXPECT_EQ(Taken(), ReadWhole("both"));
    EXPECT_EQ(m_pService->PreStart(), RC_OK); // which the kernel does not want to restore anything
    EXPECT_EQ(Queued(), Texts());
}

TEST_F(PendingEntries, TheKernelsOperations) {
    const std::string saved = Number(1) + SavedAlarm(L"stays");
    Alarm(L"stays");
    WARM_RESTART_STRUCT info;
    const std::string old(10000, 'x');
    for (const auto& [operation, left] :
         {std::pair{-1, old}, {4, old}, {WR_SECTIONS, old}, {WR_FORGET, ""}, {WR_DISCARD, ""}, {WR_SAVE, saved}}) {
        WriteWhole(FILE_NAME, old);
        EXPECT_EQ(m_pService->WarmRestart(operation, &info), RC_OK) << operation;
        EXPECT_EQ(ReadWhole(FILE_NAME), left) << operation;
        EXPECT_EQ(std::filesystem::exists(FILE_NAME), !left.empty()) << operation;
        EXPECT_EQ(Queued(), Texts{"stays"}) << operation;
    }
    const std::unique_ptr<wchar_t[]> sections(info.m_pszSections);
    EXPECT_EQ(std::wstring(sections.get(), 11), std::wstring(L"kvLogFile\0\0", 11));
    EXPECT_EQ(m_pService->WarmRestart(WR_SECTIONS, nullptr), RC_ARGUMENT);
    EXPECT_EQ(m_pService->SavePendingLogEntries(L"logs"), RC_NOT_FOUND);
    EXPECT_EQ(m_pService->RestorePendingLogEntries(L"none"), RC_OK);
    m_pService->PushLogInfo(new ELogInfo(nullptr, ACTION_LOG_ALARM, 0, nullptr));
    EXPECT_EQ(m_pService->WarmRestart(WR_SAVE, nullptr), RC_NO_FILE_SPEC);
    EXPECT_EQ(ReadWhole(FILE_NAME), Number(2) + saved.substr(4)) << "what can be saved is";
}

TEST_F(PendingEntries, DamageEndsTheRestoreInBoundedMemory) {
    const std::string one = Number(3) + SavedAlarm(L"one");
    const std::string two = one + SavedSnapShot(L"Log");
    const std::string whole = two + SavedAlarm(L"three", L"Gone");
    const auto restore = [&](const std::string& bytes) {
        WriteWhole("warm", bytes);
        const EResult result = m_pService->RestorePendingLogEntries(L"warm");
        std::filesystem::remove("warm"); // file systems flush a file that is cut and written anew, which takes long
        const std::size_t count = Queued().size();
        Clear();
        return std::pair{result, count};
    };
    for (std::size_t at = 0; at < whole.size(); ++at) {
        SCOPED_TRACE(at);
        for (const std::string damage : {"\x7F", "\xFF", "\xFF\xFF\xFF\xFF"}) {
            restore(std::string(whole).replace(at, damage.size(), damage));
        }
        const std::size_t left = at < one.size() ? 0 : at < two.size() ? 1 : 2;
        EXPECT_EQ(restore(whole.substr(0, at)), std::pair(RC_READ, left));
    }
    EXPECT_EQ(restore(whole), std::pair(RC_OK, std::size_t{3}));
    rusage used{};
    getrusage(RUSAGE_SELF, &used);
    EXPECT_LT(used.ru_maxrss, 1L << 20U) << "KiB: a damaged count was believed";
}

TEST_F(PendingEntries, AFullDiskKeepsTheFirstRequests) {
    for (int i = 0; i < 12; ++i) {
        Alarm(std::wstring(10'000, L'x').c_str()); // more than 40 kB when it is saved
    }
    {
        const FullDisk disk(300'000);
        EXPECT_EQ(m_pService->WarmRestart(WR_SAVE, nullptr), RC_WRITE);
    }
    Clear();
    EXPECT_EQ(m_pService->RestorePendingLogEntries(Wide(FILE_NAME)), RC_READ);
    EXPECT_EQ(Queued(), Texts(7, std::string(10'000, 'x')));
}

TEST_F(PendingEntries, WhatIsWholeAndWantedComesBackAndTheRestIsDropped) {
    m_Kernel.m_Names.m_RefusedIds = {3};
    ASSERT_EQ(Restore(3), RC_OK);
    const std::string first = SavedAlarm(L"first");
    const std::string last = SavedAlarm(L"last");
    const std::string gone = SavedSnapShot(L"Gone");
    const std::string refused = SavedSnapShot(L"Log@3");
    std::string removed = gone;
    removed[4] = 'X'; // "Xone" is no log file
    m_Kernel.m_Control.m_bRestoreWanted = true;
    const struct {
        std::string m_File;
        Texts m_Queued;
        bool m_bReported; // as damage
    } cases[] = {{Number(4) + first + removed + refused + last, {"first", "last"}, false},
                 {Number(3) + first + removed.substr(0, removed.size() - 1), {"first"}, true},
                 {Number(3) + first + gone + last, {"first", "a,b,c", "last"}, false},
                 {Number(1) + first + last, {"first"}, false},
                 {Number(2) + first + removed.substr(0, 24) + Number(0xFFFFFFFF), {"first"}, true}};
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
    EXPECT_EQ(m_Kernel.m_Reporter.Messages(), Messages(2, {9, 3, 138, ""}));
}

} // namespace
