#pragma once

#include "base/ETimeStamp.h"
#include "base/Export.h"

#include <cstdint>

class EString;

// A value with its quality and time stamp. Text is not owned: it must outlive the value and its copies (the copies that
// EONEVENTSTRUCT makes refer to text of the record's own).
class KVBASE_API CDataValue {
public:
    enum class Type : std::uint8_t { Nothing = 0, Boolean = 1, Integer = 2, Double = 3, Text = 4 };

    static constexpr std::uint32_t QUALITY_BAD = 0;
    static constexpr std::uint32_t QUALITY_UNCERTAIN = 64;
    static constexpr std::uint32_t QUALITY_GOOD = 192;

    void SetNothing() { m_Type = Type::Nothing; }
    void SetBoolean(bool value);
    void SetInteger(std::int64_t value);
    void SetDouble(double value);
    void SetText(const wchar_t* text); // null counts as empty

    Type GetType() const { return m_Type; }
    bool GetBoolean() const { return m_bBoolean; }
    std::int64_t GetInteger() const { return m_nInteger; }
    double GetDouble() const { return m_Double; }
    const wchar_t* GetText() const { return m_pszText; }

    // The value as text, replacing `text`: empty for nothing, "true" or "false", the decimal number. A double has as few
    // digits as read back the same, and an exponent only below 1e-5 and from 1e15 on. The three options are reserved; 0
    // for each is the only layout.
    void GetString(EString& text, int option1, int option2, int option3) const;

    std::uint32_t GetQuality() const { return m_nQuality; }
    void SetQuality(std::uint32_t quality) { m_nQuality = quality; }
    ETimeStamp GetTimestamp() const { return m_TimeStamp; }
    void SetTimestamp(const ETimeStamp& stamp) { m_TimeStamp = stamp; }

private:
    union {
        std::int64_t m_nInteger = 0;
        bool m_bBoolean;
        double m_Double;
        const wchar_t* m_pszText;
    };
    std::uint32_t m_nQuality = QUALITY_GOOD;
    ETimeStamp m_TimeStamp;
    Type m_Type = Type::Nothing;
};
