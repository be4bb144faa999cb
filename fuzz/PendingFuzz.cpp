#include "base/ELock.h"
#include "fuzz/Require.h"
#include "intake/ELogInfo.h"
#include "service/ELogFile.h"
#include "service/Entry.h"
#include "tests/Workplace.h"
#include "tests/kernel/TestKernel.h"

namespace {

constexpr int ROWS = 50;

// The requests that wait can be saved and restored again, to the same bytes.
void SaveAndRestore(ELogFile& service) {
    const int restored = service.m_LogQueue.GetCount();
    Require(service.SavePendingLogEntries(L"second") == RC_OK, "what was restored can be saved");
    while (auto* request = static_cast<ELogInfo*>(service.m_LogQueue.RemoveHead())) {
        delete request;
    }
    Require(service.RestorePendingLogEntries(L"second") == RC_OK, "and restored");
    Require(service.m_LogQueue.GetCount() == restored, "as many requests as before");
    Require(service.SavePendingLogEntries(L"third") == RC_OK, "and saved again");
    Require(ReadWhole("second") == ReadWhole("third"), "to the same bytes");
}

// The worker writes what waits, and then the rows that are reported from now on.
void WriteRows(ELogFile& service) {
    service.Start();
    std::string reported;
    for (int i = 0; i < ROWS; ++i) {
        const std::string name = "row " + std::to_string(i);
        const EString wide = Wide(name);
        EONEVENTSTRUCT record = MakeRecord(wide);
        EString log = L"Log";
        Require(service.LogAlarm(log, &record) == RC_OK, "a row is taken");
        reported += ',' + name + ",T,S,D,Not Active,Not ACKED,7,17\n";
    }
    Require(Eventually([&] {
                const ELock lock(service.m_QueueMutex, MUTEX_NAME);
                return service.m_LogQueue.GetCount() == 0;
            }),
            "the queue is emptied");
    service.PrepareToStop();
    std::istringstream files(ReadWhole("logs/log-1.csv") + ReadWhole("logs/log-0.csv")); // which take all of them
    std::string written;
    for (std::string line; std::getline(files, line);) {
        const std::size_t at = line.find(",row ");
        written += at != std::string::npos ? line.substr(at) + '\n' : "";
    }
    Require(written == reported, "every row is written, once and in order");
}

} // namespace

// The input is a file of saved requests, which the service finds when it starts. Whatever it holds, the service goes on.
extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
    static const Workplace workplace;
    for (const char* left : {"logs", "Spool", "second", "third"}) {
        std::filesystem::remove_all(left);
    }
    Workplace::WriteSection({SpecItems{.m_nMaxSize = 8192},
                             SpecItems{.m_Name = "Page", .m_File = "page-%i.htm", .m_nFormat = 2},
                             SpecItems{.m_Name = "Sent", .m_File = "sent-%i.csv", .m_nDelivery = 3, .m_Mail = "Mail"}});
    WriteWhole("kvLogFile.warm", std::string(data, data + size));
    TestKernel kernel;
    kernel.m_Control.m_bRestoreWanted = true;
    kernel.m_EMail.m_Definitions = {{"Mail", ""}};
    kernel.m_EMail.m_Notices.m_When = TestNotices::When::Inside;
    ELogFile* service = kvLogFileInitService(&kernel);
    service->PrepareToStart();
    service->Restore(0);
    service->PreStart();
    SaveAndRestore(*service);
    WriteRows(*service);
    service->Stop();
    Require(kernel.m_EMail.m_nRecords == 0, "every message is released");
    return 0;
}
