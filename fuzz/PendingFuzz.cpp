#include "base/EFileIO.h"
#include "base/Guarded.h"
#include "fuzz/Require.h"
#include "intake/ELogInfo.h"
#include "service/ELogFile.h"
#include "service/Entry.h"
#include "tests/Workplace.h"
#include "tests/kernel/TestKernel.h"

#include <memory>

namespace {

// A service with two log files, in a directory of its own; never ended, as the fuzzer may leave at any time.
class Configured {
public:
    Configured() {
        Workplace::WriteSection({SpecItems{.m_Name = "Log", .m_nMaxSize = 4096},
                                 SpecItems{.m_Name = "Page", .m_File = "page-%i.htm", .m_nFormat = 2}});
        m_pService = kvLogFileInitService(&m_Kernel);
        m_pService->PrepareToStart();
        m_pService->Restore(0);
    }

    // Takes every waiting request off the queue, and carries out the first few.
    void Empty(int processed) {
        while (auto* info = static_cast<ELogInfo*>(m_pService->m_LogQueue.RemoveHead())) {
            const std::unique_ptr<ELogInfo> owned(info);
            if (processed-- > 0) {
                Guarded([&] { return m_pService->ProcessLogFile(info); });
            }
        }
    }

    Workplace m_Workplace;
    TestKernel m_Kernel;
    ELogFile* m_pService;
};

} // namespace

// The input is a file of saved requests. What was restored of it can be saved and restored again, to the same bytes.
extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
    static Configured& configured = *new Configured;
    ELogFile& service = *configured.m_pService;
    WriteWhole("first", std::string(data, data + size));
    const EResult result = service.RestorePendingLogEntries(L"first");
    Require(result == RC_OK || result == RC_READ, "a damaged file fails as a read");
    const int restored = service.m_LogQueue.GetCount();

    EFileIO::DeleteFile(L"second", false);
    EFileIO::DeleteFile(L"third", false);
    Require(service.SavePendingLogEntries(L"second") == RC_OK, "what was restored can be saved");
    configured.Empty(0);
    Require(service.RestorePendingLogEntries(L"second") == RC_OK, "and restored");
    Require(service.m_LogQueue.GetCount() == restored, "as many requests as before");
    Require(service.SavePendingLogEntries(L"third") == RC_OK, "and saved again");
    Require(ReadWhole("second") == ReadWhole("third"), "to the same bytes");
    configured.Empty(8);
    return 0;
}
