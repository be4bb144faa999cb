#pragma once

#include "base/ETimeStamp.h"
#include "base/Export.h"

#include <cstdint>

class EString;

// A value with its quality and time stamp. Text is not owned: it must outlive the value and its copies. (A deep copy of
// an EONEVENTSTRUCT owns the text of its value.)
class KVBASE_API CDataValue {
public:
    enum class Type : std::uint8_t { Nothing = 0, Boolean = 1, Integer = 2, Double = 3, Text = 4 };

    static constexpr std::uint32_t QUALITY_BAD = 0;
    static constexpr std::uint32_t QUALITY_UNCERTAIN = 64;
    static constexpr std::uint32_t QUALITY_GOOD = 192;

    void SetNothing() {
        m_Type = Type::Nothing;
        m_nBits = 0;
    }
    void SetBoolean(bool value);
    void SetInteger(std::int64_t value);
    void SetDouble(double value);
    void SetText(const wchar_t* text); // null counts as empty

    Type GetType() const { return m_Type; }
    const wchar_t* GetText() const { return m_pszText; } // of a text

    // For saving: 0 or 1 for a boolean, the bits of an integer or a double, otherwise 0.
    std::uint64_t GetBits() const { return m_Type == Type::Text ? 0 : m_nBits; }
    bool SetBits(Type type, std::uint64_t bits); // false for an unknown type; a text is empty

    // The value as text, which replaces `text`: empty for nothing, "true" or "false", the decimal number. A double has
    // the fewest digits that read back as the same double, and an exponent only below 1e-5 and from 1e15 on. The
    // options are ignored.
    void GetString(EString& text, int option1, int option2, int option3) const;

    std::uint32_t GetQuality() const { return m_nQuality; }
    void SetQuality(std::uint32_t quality) { m_nQuality = quality; }
    ETimeStamp GetTimestamp() const { return m_TimeStamp; }
    void SetTimestamp(const ETimeStamp& stamp) { m_TimeStamp = stamp; }

private:
    union {
        std::uint64_t m_nBits = 0;
        const wchar_t* m_pszText;
    };
    std::uint32_t m_nQuality = QUALITY_GOOD;
    ETimeStamp m_TimeStamp;
    Type m_Type = Type::Nothing;
};
