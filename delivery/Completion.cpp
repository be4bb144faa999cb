#include "service/ELogFile.h"

#include "base/ELock.h"
#include "base/Guarded.h"
#include "delivery/ELogFileDeliverySpec.h"
#include "service/Entry.h"

// m_CompletionMutex lets one completion at a time look up, change and end a job. Exactly one frees it, and a later one
// does not find it. The lock is not held while a sending is started: a service may call the completion inside that
// call.

bool ELogFile::IsDelivering(const ELogFileDeliverySpec* job) {
    const ELock lock(m_DeliveryMutex, MUTEX_NAME);
    return job != nullptr && m_Deliveries.Find(job, nullptr) != nullptr;
}

void ELogFile::CompleteTransfers(ELogFileDeliverySpec* job, int finished, bool mayEnd) {
    const ELock lock(m_CompletionMutex, MUTEX_NAME);
    if (!IsDelivering(job)) {
        return;
    }
    job->m_nCompleted = finished == ALL_TRANSFERS ? job->m_Files.GetSize() : job->m_nCompleted + finished;
    if (mayEnd) {
        job->OnComplete();
    }
}

void ELogFile::OnEMailComplete(EMAILSTATUS /*status*/, void* job) {
    Guarded([&] {
        if (ELogFile* service = TheLogFile(); service != nullptr) { // null after Stop
            service->CompleteTransfers(static_cast<ELogFileDeliverySpec*>(job), 1);
        }
        return RC_OK;
    });
}

void ELogFile::OnUploadComplete(unsigned long job, unsigned long /*status*/) {
    Guarded([&] {
        CompleteTransfers(reinterpret_cast<ELogFileDeliverySpec*>(job), ALL_TRANSFERS);
        return RC_OK;
    });
}
