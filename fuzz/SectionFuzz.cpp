#include "config/EFileSpec.h"
#include "fuzz/Require.h"
#include "service/ELogFile.h"
#include "service/Entry.h"
#include "tests/Workplace.h"
#include "tests/kernel/TestKernel.h"

#include <algorithm>

namespace {

constexpr int FEW_FILES = 3;

void CheckSpec(const ELogFile& service, const EString& key, EFileSpec* spec) {
    Require(spec != nullptr, "an entry has a file specification");
    Require(spec->m_Name == key, "a specification stands under its name");
    Require(spec->m_pFilter != nullptr, "a specification has a filter");
    Require((key == KERNEL_LOG_NAME) == (spec == service.m_pKernelLogSpec), "one kernel log, and no other");
}

void CheckRegistry(ELogFile& service) {
    EString key;
    void* value = nullptr;
    for (auto position = service.m_FileSpecs.GetStartPosition(); position != nullptr;) {
        service.m_FileSpecs.GetNextAssoc(position, key, value);
        CheckSpec(service, key, static_cast<EFileSpec*>(value));
        // The end deletes the files of delivered sets, one call for each that a set may have.
        auto& files = static_cast<EFileSpec*>(value)->m_NumFiles;
        files = std::min<int>(files, FEW_FILES);
    }
}

} // namespace

// The input is the service's section.
extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
    static const Workplace workplace;
    WriteWhole("kvLogFile.json", std::string(data, data + size));
    TestKernel kernel;
    kernel.m_Names.m_bPreparesPaths = false; // whatever directories the section names, none are made
    ELogFile* service = kvLogFileInitService(&kernel);
    Require(service->PrepareToStart() == RC_OK, "the service prepares");
    service->Restore(0, 0);
    service->PreStart();
    service->Start();
    Require(service->m_pKernelLogSpec != nullptr, "there is a kernel log");
    CheckRegistry(*service);
    service->PrepareToStop();
    service->Stop();
    return 0;
}
