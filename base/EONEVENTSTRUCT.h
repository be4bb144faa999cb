#pragma once

#include "base/CDataValue.h"
#include "base/ETimeStamp.h"
#include "base/Export.h"

#include <cstddef>
#include <cstdint>
#include <memory>

class EFileIO;

// The fields of a record.
struct EEventFields {
    const wchar_t* m_pszName = nullptr;
    const wchar_t* m_pszText = nullptr;
    const wchar_t* m_pszSource = nullptr;
    const wchar_t* m_pszDetail = nullptr;
    CDataValue m_Value;
    ETimeStamp m_TimeStamp;
    std::uint16_t m_wState = 0;
    std::int32_t m_nCode = 0;
    std::int32_t m_nAlarmNumber = 0;
    std::int32_t m_nPrefixNumbers[4] = {0, 0, 0, 0};
    std::int32_t m_nIdentifier = 0;
    std::int32_t m_nIndex = 0; // the file index, when a file name is made with the record
};

// The record that a component reports: an event, an alarm, or one value of a snapshot.
//
// Its texts may be null, which counts as empty. They belong to the caller and must stay valid while the record is used.
// A record made by a deep copy or by Restore owns its texts, in one allocation. A record belongs to one thread at a
// time.
class KVBASE_API EONEVENTSTRUCT : public EEventFields {
public:
    static constexpr std::uint16_t STATE_ACTIVE = 0x0002;
    static constexpr std::uint16_t STATE_ACKED = 0x0004;

    // The fewest bytes that Save writes for a record.
    static constexpr std::size_t SAVED_SIZE_MIN = 79;

    EONEVENTSTRUCT() = default;
    // `deep`: copies the texts, too; otherwise it refers to the source's texts. Throws std::bad_alloc.
    EONEVENTSTRUCT(const EONEVENTSTRUCT* source, bool deep);
    // A record that was moved from may only be destroyed or assigned to.
    EONEVENTSTRUCT(EONEVENTSTRUCT&&) noexcept = default;
    EONEVENTSTRUCT& operator=(EONEVENTSTRUCT&&) noexcept = default;
    EONEVENTSTRUCT(const EONEVENTSTRUCT&) = delete;
    EONEVENTSTRUCT& operator=(const EONEVENTSTRUCT&) = delete;
    ~EONEVENTSTRUCT() = default;

    // Write and read the whole record at the file's position, little-endian and the same on every target. Non-zero on
    // success. Restore allocates nothing for lengths beyond the rest of the file, or beyond LONGEST_TEXT in all; it
    // fails, and leaves the record unchanged.
    int Save(EFileIO* file) const;
    int Restore(EFileIO* file);

private:
    std::unique_ptr<wchar_t[]> m_pTexts; // the texts it owns, one after the other
};
