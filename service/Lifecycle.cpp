#include "service/ELogFile.h"

#include "base/Contract.h"
#include "base/ELock.h"
#include "base/EPersistent.h"
#include "base/Guarded.h"
#include "base/IActionRegistry.h"
#include "base/IErrorReporter.h"
#include "base/IKernelControl.h"
#include "base/InterfaceIds.h"
#include "base/Messages.h"
#include "config/EFileSpec.h"
#include "service/Entry.h"

#include <memory>

namespace {

bool HasBits(std::uint32_t state, std::uint32_t bits) {
    return (state & bits) == bits;
}

} // namespace

EResult ELogFile::PrepareToStart() {
    return Guarded([this] {
        if (HasBits(m_State, STATE_PREPARED)) {
            return RC_OK;
        }
        m_pKernelControl = Fetch<IKernelControl>(IID_KERNEL_CONTROL);
        m_pErrorReporter = Fetch<IErrorReporter>(IID_ERROR_REPORTER);
        if (m_pKernelControl == nullptr || m_pErrorReporter == nullptr) {
            return RC_MISSING;
        }
        if (const EResult registered = RegisterActions(); registered != RC_OK) {
            return registered;
        }
        m_pUploadService = Fetch<IUploadService>(IID_UPLOAD_SERVICE);
        m_pEMailService = Fetch<IEMailService>(IID_EMAIL_SERVICE);
        m_pStringTable = Fetch<IStringTable>(IID_STRING_TABLE);
        if (m_pStringTable == nullptr) {
            return RC_MISSING;
        }
        if (const EResult added = EPersistent::AddFactory(new EFileSpec); Failed(added)) {
            return added; // without the factory no configured log file can be restored
        }
        m_State = STATE_PREPARED;
        return RC_OK;
    });
}

// Returns the result of the last registration; RC_OK for a gateway without an action registry.
EResult ELogFile::RegisterActions() {
    auto* registry = Fetch<IActionRegistry>(IID_ACTION_REGISTRY);
    EResult result = RC_OK;
    if (registry != nullptr) {
        for (const ActionName& action : ACTION_NAMES) {
            result = registry->RegisterAction(action.m_pszName, this);
        }
    }
    return result;
}

EResult ELogFile::PreStart() {
    return Guarded([this] {
        if (HasBits(m_State, STATE_PRE_STARTED)) {
            return RC_OK;
        }
        const auto restore = [this] { return RestorePendingLogEntries(PendingEntriesPath()); };
        if (m_pKernelControl->IsRestoreWanted() != 0 && Guarded(restore) != RC_OK) {
            m_pErrorReporter->Report(LEVEL_ERROR, SOURCE_KERNEL, MSG_PENDING_NOT_RESTORED);
            m_pKernelControl->Operation9(1);
            m_pKernelControl->Operation6(0);
            m_pKernelControl->Operation3();
            m_pKernelControl->Operation5();
        }
        return CKernelService::PreStart();
    });
}

EResult ELogFile::Start() {
    return Guarded([this] {
        if (HasBits(m_State, STATE_STARTED)) {
            return RC_OK;
        }
        MakeKernelLog();
        m_bRunning = true;
        // A concurrent report waits for this lock and then finds the service started: it must not write beside the
        // worker.
        const ELock lock(m_QueueMutex, MUTEX_NAME);
        m_LogThread.Begin(&ELogFile::LogFileThreadStub, this, L"LogFileThrd");
        m_State = STATE_STARTED;
        return RC_OK;
    });
}

// Finds the configured kernel log, or makes the default one.
void ELogFile::MakeKernelLog() {
    const ELock lock(m_FileSpecMutex, MUTEX_NAME);
    void* found = nullptr;
    if (m_FileSpecs.Lookup(KERNEL_LOG_NAME, found) != 0) {
        m_pKernelLogSpec = static_cast<EFileSpec*>(found);
    }
    if (m_pKernelLogSpec != nullptr) {
        return;
    }
    auto spec = std::make_unique<EFileSpec>();
    spec->m_Name = KERNEL_LOG_NAME;
    spec->m_FileName = KERNEL_LOG_FILE;
    spec->m_MaxFileSize = KERNEL_LOG_SIZE;
    spec->m_NumFiles = KERNEL_LOG_FILES;
    spec->m_FileFormat = FORMAT_PLAIN_TEXT;
    spec->MakeFilter(true);
    m_FileSpecs[KERNEL_LOG_NAME] = spec.get();
    m_pKernelLogSpec = spec.release(); // last: a reporting thread may use it from here on
}

EResult ELogFile::PrepareToStop() {
    return Guarded([this] {
        if (m_State != STATE_STARTED) {
            return RC_OK;
        }
        m_bRunning = false;
        m_WakeEvent.Set();
        m_LogThread.Wait();
        m_State = STATE_STOPPED;
        return RC_OK;
    });
}

EResult ELogFile::Stop() {
    PrepareToStop(); // first: until then completion notices need the service
    SetTheLogFile(nullptr);
    return CKernelService::Stop();
}
