#include "service/ELogFile.h"

#include "base/Contract.h"
#include "base/ELock.h"
#include "base/EONEVENTSTRUCT.h"
#include "base/Guarded.h"
#include "base/IStringTable.h"
#include "base/InterfaceIds.h"
#include "base/Messages.h"
#include "config/EFileSpec.h"
#include "delivery/ELogFileDeliverySpec.h"
#include "intake/ELogInfo.h"
#include "service/Entry.h"

namespace {

void Append(EStringArray& headings, const wchar_t* text) {
    headings.SetAtGrow(headings.GetSize(), text);
}

} // namespace

ELogFile::ELogFile(IKernelBase* kernel) : CKernelService(kernel) {
    if (kernel != nullptr) {
        void* table = nullptr;
        kernel->GetInterface(IID_STRING_TABLE, &table);
        m_pStringTable = static_cast<IStringTable*>(table);
    }
    Initialize();
}

void ELogFile::Initialize() {
    if (m_pStringTable == nullptr) {
        return;
    }
    for (const unsigned long number : {HEADING_DATE, HEADING_TIME}) {
        const EString text = m_pStringTable->GetString(number, 0);
        Append(m_SnapShotHeaders, text);
        Append(m_AlarmHeaders, text);
    }
    for (unsigned long number = HEADING_ALARM_FIRST; number <= HEADING_ALARM_LAST; ++number) {
        Append(m_AlarmHeaders, m_pStringTable->GetString(number, 0));
    }
}

// No other thread uses the service any more, except the worker when PrepareToStop was not called.
ELogFile::~ELogFile() {
    ELogFile::PrepareToStop();
    if (TheLogFile() == this) {
        SetTheLogFile(nullptr); // Stop may not have been called
    }
    DiscardRequests();
    const ELock lock(m_FileSpecMutex, MUTEX_NAME);
    DestroyFileSpecs();
    DestroyDeliveries();
}

void ELogFile::DiscardRequests() {
    while (!m_EarlyEvents.IsEmpty()) {
        delete static_cast<EONEVENTSTRUCT*>(m_EarlyEvents.RemoveHead());
    }
    while (!m_LogQueue.IsEmpty()) {
        delete static_cast<ELogInfo*>(m_LogQueue.RemoveHead());
    }
}

void ELogFile::DestroyFileSpecs() {
    // Does not copy the names: a destructor must not run out of memory.
    for (const auto& [name, value] : m_FileSpecs) {
        auto* spec = static_cast<EFileSpec*>(value);
        if (spec->IsSpooled()) {
            Guarded([&] {
                DeleteFiles(spec);
                return RC_OK;
            });
        }
        spec->DestroyObject();
    }
}

void ELogFile::DestroyDeliveries() {
    for (auto position = m_Deliveries.GetHeadPosition(); position != nullptr;) {
        auto* job = static_cast<ELogFileDeliverySpec*>(m_Deliveries.GetNext(position));
        job->Finalize(false);
        delete job;
    }
    m_Deliveries.RemoveAll();
}
