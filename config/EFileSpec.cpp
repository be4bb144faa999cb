#include "config/EFileSpec.h"

#include "base/EFileIO.h"
#include "base/ELock.h"
#include "base/EPersistent.h"
#include "base/ETime.h"
#include "base/Guarded.h"
#include "base/IErrorReporter.h"
#include "base/INameService.h"
#include "base/Messages.h"
#include "files/ELogFilterHTML.h"
#include "files/ELogFilterPlainText.h"
#include "service/ELogFile.h"
#include "service/Entry.h"

EFileSpec::EFileSpec() {
    ETime::GetTimeStamp(&m_FileTime);
}

EFileSpec::~EFileSpec() {
    // A kernel log may be destroyed by a failed restore or a rejection. Nothing must point to it afterwards.
    ELogFile* service = TheLogFile();
    if (service != nullptr && service->m_pKernelLogSpec == this) {
        const ELock lock(service->m_NameMutex, MUTEX_NAME); // another thread may be reading the name of its file
        service->m_pKernelLogSpec = nullptr;
    }
}

EResult EFileSpec::Save(unsigned long /*section*/) {
    return RC_OK;
}

EResult EFileSpec::Restore(unsigned long section) {
    return Guarded([&] {
        if (section == 0) {
            return RC_NO_SECTION;
        }
        ELogFile* service = TheLogFile();
        if (service == nullptr) {
            return RC_MISSING;
        }
        EResult result = m_Name.Restore(section);
        const bool kernelLog = m_Name == KERNEL_LOG_NAME;
        if (service->m_pNameService != nullptr) {
            service->m_pNameService->QualifyName(service->m_nRestoreIndex, &m_Name);
        }
        result |= RestoreItems(section);
        if (Failed(result)) {
            return result;
        }
        if (!kernelLog) {
            PrepareDirectories();
        }
        MakeFilter(kernelLog);
        if (m_pFilter == nullptr) {
            return RC_NOT_MADE;
        }
        if (kernelLog && service->m_pKernelLogSpec == nullptr) {
            service->m_pKernelLogSpec = this; // last: GetAgentLogFile may use it from here on
        }
        return result;
    });
}

// The items after the name. All are read, so that every failure is reported.
EResult EFileSpec::RestoreItems(unsigned long section) {
    EResult result = RC_OK;
    result |= m_LogPath.Restore(section);
    result |= m_FileName.Restore(section);
    result |= m_MaxFileSize.Restore(section);
    result |= m_NumFiles.Restore(section);
    if (EPersistent::GetRecord(section).m_nVersion <= 1) {
        EPersistentInt dropped; // three numbers that only the old layout has
        result |= dropped.Restore(section);
        result |= dropped.Restore(section);
        result |= dropped.Restore(section);
        result |= m_Unicode.Restore(section);
        return result;
    }
    result |= m_FileFormat.Restore(section);
    result |= m_Unicode.Restore(section);
    result |= m_DeliveryMode.Restore(section);
    result |= m_KeepCopy.Restore(section);
    result |= m_MailName.Restore(section);
    return result;
}

void EFileSpec::PrepareDirectories() {
    if (IsSpooled()) {
        m_SpoolPath = SPOOL_DIRECTORY;
        SetLogPath(&m_SpoolPath);
    }
    if (!IsSpooled() || m_KeepCopy != 0) {
        SetLogPath(&m_LogPath);
    }
}

void EFileSpec::MakeFilter(bool kernelLog) {
    const bool unicode = m_Unicode == UNICODE_UTF16;
    if (m_FileFormat == FORMAT_PLAIN_TEXT || m_FileFormat == FORMAT_COMMA_SEPARATED) {
        auto filter = std::make_unique<ELogFilterPlainText>(unicode);
        if (m_FileFormat == FORMAT_COMMA_SEPARATED && !kernelLog) {
            filter->SetDelimeter(L",");
        }
        m_pFilter = std::move(filter);
    } else if (m_FileFormat == FORMAT_HTML) {
        m_pFilter = std::make_unique<ELogFilterHTML>(unicode);
    }
}

EResult EFileSpec::GetType(EString& type) {
    return Guarded([&] {
        type = L"EFileSpec";
        return RC_OK;
    });
}

EResult EFileSpec::GetNewObject(IPersistent*& object) {
    return Guarded([&] {
        object = new EFileSpec;
        return RC_OK;
    });
}

EResult EFileSpec::DestroyObject() {
    delete this;
    return RC_OK;
}

void EFileSpec::SetLogPath(EString* path) {
    if (path->IsEmpty()) {
        *path = L".";
    }
    if ((*path)[path->GetLength() - 1] != L'/') {
        path->TrimRight();
        *path += L'/';
    }
    EFileIO::ConvertPathString(path->GetBuffer(0));

    const ELogFile* service = g_pELogFile;
    if (service->m_pNameService != nullptr) {
        if (Failed(service->m_pNameService->PreparePath(service->m_nRestoreIndex, path))) {
            service->m_pErrorReporter->Report(LEVEL_ERROR, SOURCE_LOG_FILE, MSG_PATH_NOT_PREPARED);
        }
        return;
    }
    if (EFileIO::Exists(*path, nullptr) != 0) {
        return;
    }
    EFileIO::CreateRecursiveDir(*path);
    if (EFileIO::Exists(*path, nullptr) == 0) {
        service->m_pErrorReporter->Report(LEVEL_WARNING, SOURCE_LOG_FILE, MSG_NOT_CREATED, *path);
        path->Empty();
    }
}
