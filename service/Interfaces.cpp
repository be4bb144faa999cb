#include "service/ELogFile.h"

#include "base/ELock.h"
#include "base/Guarded.h"
#include "base/InterfaceIds.h"
#include "base/Messages.h"
#include "config/EFileSpec.h"

// The interfaces of the service, for the kernel and other components.

EResult ELogFile::GetInterface(unsigned long id, void** out) {
    *out = nullptr;
    switch (id) {
    case IID_KERNEL_SERVICE:
        *out = static_cast<IKernelService*>(this);
        return RC_INTERFACE_ANSWERED;
    case IID_ACTION:
        *out = static_cast<IAction*>(this);
        return RC_INTERFACE_ANSWERED;
    case IID_LOG_FILE:
        *out = static_cast<ILogFile*>(this);
        return RC_INTERFACE_ANSWERED;
    case IID_RUN_TIME:
        *out = static_cast<IRunTime*>(this);
        return RC_INTERFACE_ANSWERED;
    default:
        return CKernelService::GetInterface(id, out);
    }
}

EResult ELogFile::GetComponentId(unsigned long& id) {
    id = static_cast<unsigned long>(SOURCE_LOG_FILE);
    return RC_OK;
}

EResult ELogFile::GetAgentLogFile(EString& fileName, int& format) {
    return Guarded([&] {
        fileName.Empty();
        const ELock lock(m_NameMutex, MUTEX_NAME);
        const EFileSpec* spec = m_pKernelLogSpec;
        if (spec == nullptr) {
            return RC_NOT_FOUND;
        }
        fileName = spec->m_CurrentFile;
        format = spec->m_FileFormat;
        return RC_OK;
    });
}

EResult ELogFile::GetGatewayType(EString& actionName, GatewayType* type) {
    if (type == nullptr) {
        return RC_NO_RECORD;
    }
    *type = actionName == ACTION_NAME_EVENT ? GATEWAY_TYPE_EVENT : GATEWAY_TYPE_ANY;
    return RC_OK;
}
