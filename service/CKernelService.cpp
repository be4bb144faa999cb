#include "service/CKernelService.h"

#include "base/Guarded.h"
#include "base/INameService.h"
#include "base/InterfaceIds.h"

CKernelService::CKernelService(IKernelBase* kernel) : m_pKernelBase(kernel) {}

CKernelService::~CKernelService() = default;

EResult CKernelService::GetInterface(unsigned long id, void** out) {
    if (m_bInGetInterface.exchange(true)) {
        return RC_OK;
    }
    *out = nullptr;
    EResult result = RC_OK;
    if (id == IID_KERNEL_SERVICE) {
        *out = static_cast<IKernelService*>(this);
    } else if (m_pKernelBase != nullptr) {
        result = Guarded([&] { return m_pKernelBase->GetInterface(id, out); });
    }
    m_bInGetInterface = false;
    return result;
}

EResult CKernelService::Save(unsigned long /*section*/) {
    return RC_OK;
}

EResult CKernelService::Restore(unsigned long /*section*/) {
    return RC_OK;
}

EResult CKernelService::Restore(unsigned long section, int index) {
    if (m_pNameService == nullptr) {
        m_pNameService = Fetch<INameService>(IID_NAME_SERVICE);
    }
    if (m_pNameService == nullptr) {
        return RC_MISSING;
    }
    m_nRestoreIndex = index;
    return index == -1 ? RC_OK : Restore(section);
}

EResult CKernelService::PrepareToStart() {
    m_State = STATE_PREPARED;
    return RC_OK;
}

EResult CKernelService::PreStart() {
    m_State = STATE_PRE_STARTED;
    return RC_OK;
}

EResult CKernelService::Start() {
    m_State = STATE_STARTED;
    return RC_OK;
}

EResult CKernelService::PrepareToStop() {
    m_State = STATE_STOPPED;
    return RC_OK;
}

EResult CKernelService::Stop() {
    delete this;
    return RC_OK;
}

EResult CKernelService::AddService(IKernelService* /*service*/,
                                   ETypedPtrList<EPtrList, IKernelService*>* /*services*/) {
    return RC_OK;
}

EResult CKernelService::Destroy() {
    return Stop();
}

EResult CKernelService::GetComponentId(unsigned long& id) {
    id = 0;
    return RC_OK;
}

EResult CKernelService::WarmRestart(WR_OPERATION /*operation*/, WARM_RESTART_STRUCT* /*info*/) {
    return RC_OK;
}

EResult CKernelService::RTPreStart() {
    return RC_NOT_PROVIDED;
}

EResult CKernelService::RTStart() {
    return RC_NOT_PROVIDED;
}

EResult CKernelService::RTRestore(unsigned long section, int index) {
    return Restore(section, index);
}
