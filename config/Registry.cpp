#include "service/ELogFile.h"

#include "base/ELock.h"
#include "base/IErrorReporter.h"
#include "base/INameService.h"
#include "base/Messages.h"
#include "config/EFileSpec.h"

#include <memory>

namespace {

struct Destroyer {
    void operator()(EFileSpec* spec) const { spec->DestroyObject(); }
};

} // namespace

// Adds the file specification to the registry, or destroys it. The first of a name wins.
void ELogFile::RegisterFileSpec(EFileSpec* restored) {
    std::unique_ptr<EFileSpec, Destroyer> spec(restored);
    EString plainName = spec->m_Name;
    if (m_pNameService != nullptr) {
        int id = -1;
        m_pNameService->ParseName(&plainName, &id);
    }
    if (plainName == KERNEL_LOG_NAME) {
        if (m_pKernelLogSpec != spec.get()) {
            return;
        }
        spec->m_Name = plainName;
        spec->m_FileName.Replace(KERNEL_WORD, KERNEL_WORD_INSTEAD);
    }
    if (!IsDeliverable(*spec)) { // outside the lock: the kernel may log the message it gets
        return;
    }
    const ELock lock(m_FileSpecMutex, MUTEX_NAME);
    void*& entry = m_FileSpecs[spec->m_Name];
    if (entry == nullptr) {
        entry = spec.release();
    }
}

// Whether the gateway has the service that the log file delivers with. Reports a missing one.
bool ELogFile::IsDeliverable(const EFileSpec& spec) {
    if (spec.m_DeliveryMode == DELIVERY_UPLOAD && m_pUploadService == nullptr) {
        m_pErrorReporter->Report(LEVEL_WARNING, SOURCE_KERNEL, MSG_NO_UPLOAD_SERVICE);
        return false;
    }
    if (spec.m_DeliveryMode == DELIVERY_EMAIL && m_pEMailService == nullptr) {
        m_pErrorReporter->Report(LEVEL_WARNING, SOURCE_KERNEL, MSG_NO_EMAIL_SERVICE);
        return false;
    }
    return true;
}

EFileSpec* ELogFile::FindFileSpec(const wchar_t* name) {
    const ELock lock(m_FileSpecMutex, MUTEX_NAME);
    void* found = nullptr;
    m_FileSpecs.Lookup(name, found);
    return static_cast<EFileSpec*>(found);
}
