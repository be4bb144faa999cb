#include "service/ELogFile.h"

#include "base/ELock.h"
#include "base/EONEVENTSTRUCT.h"
#include "base/Guarded.h"
#include "base/INameService.h"
#include "config/EFileSpec.h"
#include "intake/ELogInfo.h"

#include <memory>

namespace {

const ActionName* FindAction(const EString& name) {
    for (const ActionName& action : ACTION_NAMES) {
        if (name == action.m_pszName) {
            return &action;
        }
    }
    return nullptr;
}

} // namespace

EResult ELogFile::ReportEvent(EONEVENTSTRUCT* record) {
    if (record == nullptr) {
        return RC_NO_RECORD;
    }
    return Guarded([&] {
        bool queued = false;
        {
            const ELock lock(m_QueueMutex, MUTEX_NAME);
            EFileSpec* spec = m_bRestoring ? nullptr : m_pKernelLogSpec.load();
            queued = spec != nullptr && m_State == STATE_STARTED;
            if (spec == nullptr) {
                auto copy = std::make_unique<EONEVENTSTRUCT>(record, true);
                m_EarlyEvents.AddTail(copy.get());
                (void)copy.release();
            } else if (queued) {
                PushLogInfo(new ELogInfo(spec, ACTION_LOG_EVENT, 1, record));
            } else {
                WriteEarlyEvents();
                WriteEventNow(record);
            }
        }
        if (queued) {
            m_WakeEvent.Set();
        }
        return RC_OK;
    });
}

void ELogFile::WriteEarlyEvents() {
    while (!m_EarlyEvents.IsEmpty()) {
        const std::unique_ptr<EONEVENTSTRUCT> early(static_cast<EONEVENTSTRUCT*>(m_EarlyEvents.RemoveHead()));
        WriteEventNow(early.get());
    }
}

void ELogFile::WriteEventNow(EONEVENTSTRUCT* record) {
    ELogInfo request(m_pKernelLogSpec, ACTION_LOG_EVENT, 1, record);
    ProcessLogFile(&request);
}

EResult ELogFile::LogAlarm(EString& name, EONEVENTSTRUCT* record) {
    return record == nullptr ? RC_NO_RECORD : Log(name, ACTION_LOG_ALARM, 1, record);
}

EResult ELogFile::LogSnapShot(EString& name, EONEVENTSTRUCT* records, unsigned long count) {
    return records == nullptr ? RC_NO_RECORD : Log(name, ACTION_LOG_SNAPSHOT, count, records);
}

EResult ELogFile::Log(EString& name, int action, unsigned long count, EONEVENTSTRUCT* records) {
    return Guarded([&] {
        EFileSpec* spec = FindFileSpec(name);
        return spec == nullptr ? RC_NO_LOG_FILE : QueueRequest(spec, action, count, records);
    });
}

EResult ELogFile::Invoke(EString& actionName, EString& name, ETypedPtrList<EPtrList, EAttribute*>* /*attributes*/,
                         unsigned long count, EONEVENTSTRUCT* records, IErrorListener* /*listener*/) {
    if (count == 0 || records == nullptr) {
        return RC_NO_RECORD;
    }
    return Guarded([&] {
        EFileSpec* spec = FindFileSpec(name);
        if (spec == nullptr) {
            return RC_NO_LOG_FILE;
        }
        const ActionName* action = FindAction(actionName);
        if (action == nullptr || (action->m_Action == ACTION_DELIVERY && !spec->Delivers())) {
            return RC_NO_ACTION;
        }
        if (action->m_Action == ACTION_LOG_ALARM && records[0].m_nIdentifier != IdentifierOf(name)) {
            return RC_OK; // the alarm is for the log file of another identifier
        }
        return QueueRequest(spec, action->m_Action, count, records);
    });
}

// The identifier in a log file's name; -1 when it has none, or when there is no name service.
int ELogFile::IdentifierOf(const EString& name) {
    int id = -1;
    if (m_pNameService != nullptr) {
        EString copy = name;
        m_pNameService->ParseName(&copy, &id);
    }
    return id;
}

EResult ELogFile::QueueRequest(EFileSpec* spec, int action, unsigned long count, EONEVENTSTRUCT* records) {
    auto request = std::make_unique<ELogInfo>(spec, static_cast<ActionType>(action), count, records);
    {
        const ELock lock(m_QueueMutex, MUTEX_NAME);
        PushLogInfo(request.release());
    }
    m_WakeEvent.Set();
    return RC_OK;
}
