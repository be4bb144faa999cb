#include "service/ELogFile.h"

#include "base/ELock.h"
#include "base/EPersistent.h"
#include "base/EPersistentInt.h"
#include "base/EPersistentPointerList.h"
#include "base/Guarded.h"
#include "config/EFileSpec.h"
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

// Owns the restored specifications until they are taken.
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
    // The next one, which the caller then owns; null at the end.
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
            if (own.m_nSection == 0) { // not taken with kvBase39.so; another base library may
                return RC_MISSING;
            }
            section = own.m_nSection;
        }
        const EResult result = RestoreSettings(section);
        RestoredSpecs specs;
        specs.Restore(section); // reports and leaves out what cannot be restored
        while (EFileSpec* spec = specs.Take()) {
            RegisterFileSpec(spec);
        }
        return result;
    });
    ReleaseEvents(before);
    return restored;
}

// Holds events from here on: the kernel log that is being restored may still be rejected. Returns how many were held
// before.
int ELogFile::HoldEvents() {
    const ELock lock(m_QueueMutex, MUTEX_NAME);
    m_bRestoring = m_State != STATE_STARTED; // a running service has its kernel log
    return m_EarlyEvents.GetCount();
}

// Writes the held events if any came since HoldEvents. Otherwise they wait for the next report.
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
