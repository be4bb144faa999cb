#include "service/Entry.h"

#include "service/ELogFile.h"

#include <atomic>

const std::int32_t LOGFILE_VERSION = 1;
const wchar_t* const LOGFILE_WR_FILE_NAME = L"kvLogFile.warm";
const wchar_t* const LOGFILE_XML_NAME = L"kvLogFile";

ELogFile* g_pELogFile = nullptr;

// A plain pointer, because it is exported as one. It is accessed atomically, because completion notices may read it
// while Stop clears it.
ELogFile* TheLogFile() {
    return std::atomic_ref<ELogFile*>(g_pELogFile).load();
}

void SetTheLogFile(ELogFile* service) {
    std::atomic_ref<ELogFile*>(g_pELogFile).store(service);
}

ELogFile* kvLogFileInitService(IKernelBase* kernel) {
    auto* service = new ELogFile(kernel);
    SetTheLogFile(service);
    return service;
}
