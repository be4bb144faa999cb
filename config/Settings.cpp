#include "service/ELogFile.h"

#include "base/ELock.h"
#include "base/EPersistent.h"
#include "base/EPersistentInt.h"
#include "base/EPersistentPointerList.h"
#include "base/Guarded.h"
#include "base/IErrorReporter.h"
#include "base/INameService.h"
#include "base/Messages.h"
#include "config/EFileSpec.h"
#include "intake/Actions.h"
#include "service/Entry.h"

#include <cwchar>
#include <memory>

namespace {

constexpr const wchar_t* DEFAULT_DATE_FORMAT = L"MM-DD-YYYY";
constexpr const wchar_t* DEFAULT_TIME_FORMAT = L"HH:mm:SS.sss";
constexpr int FORMATS_SINCE_VERSION = 3;

// Closes a section that the service has opened itself.
struct SectionCloser {
    SectionCloser() = default;
    SectionCloser(const SectionCloser&) = delete;
    SectionCloser& operator=(const SectionCloser&) = delete;
    ~SectionCloser() {
        if (m_nSection != 0) {
            EPersistent::CloseSection(m_nSection);
        }
    }
    unsigned long m_nSection = 0;
};

struct Destroyer {
    void operator()(EFileSpec* spec) const { spec->DestroyObject(); }
};

// The restored specifications that nobody else owns yet.
class RestoredSpecs {
public:
    RestoredSpecs() = default;
    RestoredSpecs(const RestoredSpecs&) = delete;
    RestoredSpecs& operator=(const RestoredSpecs&) = delete;
    ~RestoredSpecs() {
        while (EFileSpec* spec = Take()) {
            spec->DestroyObject();
        }
    }
    void Restore(unsigned long section) { m_List.Restore(section); }
    // The next one, which is the caller's from here on; null at the end.
    EFileSpec* Take() { return static_cast<EFileSpec*>(static_cast<IPersistent*>(m_List.RemoveHead())); }

private:
    EPersistentPointerList m_List{10};
};

} // namespace

EResult ELogFile::Save(unsigned long /*section*/) {
    return RC_OK;
}

EResult ELogFile::Restore(unsigned long section) {
    const int before = HoldEvents();
    const EResult restored = Guarded([&] {
        SectionCloser own;
        if (section == 0) {
            const EResult opened = EPersistent::RestoreSection(LOGFILE_XML_NAME, own.m_nSection, true);
            if (m_pNameService == nullptr && (opened & RC_FACILITY_MASK) == RC_NOT_FOUND) {
                return RC_OK; // the service runs without configuration
            }
            if (opened != RC_OK) {
                return opened;
            }
            if (own.m_nSection == 0) {
                return RC_MISSING;
            }
            section = own.m_nSection;
        }
        const EResult result = RestoreSettings(section);
        RestoredSpecs specs;
        specs.Restore(section); // what could not be restored has been left out and reported
        while (EFileSpec* spec = specs.Take()) {
            RegisterFileSpec(spec);
        }
        return result;
    });
    ReleaseEvents(before);
    return restored;
}

// From here on events are held, as before there was a kernel log: the one that is being restored may yet be refused.
// The number of those held before.
int ELogFile::HoldEvents() {
    const ELock lock(m_QueueMutex, MUTEX_NAME);
    m_bRestoring = m_State != STATE_STARTED; // a running service has its kernel log
    return m_EarlyEvents.GetCount();
}

// Writes what came meanwhile, behind what was held before. Without such an event all wait for the next report.
void ELogFile::ReleaseEvents(int before) {
    const ELock lock(m_QueueMutex, MUTEX_NAME);
    m_bRestoring = false;
    if (m_pKernelLogSpec != nullptr && m_EarlyEvents.GetCount() > before) {
        Guarded([this] {
            m_QueueMutex.AssertHeld();
            WriteEarlyEvents();
            return RC_OK;
        });
    }
}

EResult ELogFile::RestoreSettings(unsigned long section) {
    EPersistentInt version(1);
    EResult result = version.Restore(section);
    EPersistent::GetRecord(section).m_nVersion = version;
    if (version < FORMATS_SINCE_VERSION) {
        m_DateFormat = DEFAULT_DATE_FORMAT;
        m_TimeFormat = DEFAULT_TIME_FORMAT;
    } else {
        m_DateFormat.Restore(section);
        result = m_TimeFormat.Restore(section);
    }
    return result;
}

// Enters the specification into the registry, or destroys it. The first of a name wins.
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
        spec->m_FileName.Replace(L"EKernel", L"Kavro");
    }
    if (!IsDeliverable(*spec)) { // outside the lock: a kernel may log what it is told
        return;
    }
    const ELock lock(m_FileSpecMutex, MUTEX_NAME);
    void*& entry = m_FileSpecs[spec->m_Name];
    if (entry == nullptr) {
        entry = spec.release();
    }
}

// Whether the gateway has the service by which the log file delivers; reports it when it has not.
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
