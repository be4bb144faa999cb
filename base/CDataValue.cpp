#include "base/CDataValue.h"

#include "base/EString.h"

#include <algorithm>
#include <charconv>
#include <cmath>

namespace {

constexpr std::size_t ROOM = 32; // the longest doubles, as -2.2250738585072014e-308, have 24 characters

// Prints as few digits as read back the same.
template <class Number, class... Format>
void Print(EString& text, Number number, Format... format) {
    char digits[ROOM];
    wchar_t wide[ROOM];
    const char* const end = std::to_chars(digits, digits + ROOM - 1, number, format...).ptr;
    *std::copy(static_cast<const char*>(digits), end, wide) = L'\0';
    text = wide;
}

// A column of measured values has one notation; only very small and very large ones have an exponent.
std::chars_format FormatOf(double number) {
    const double magnitude = std::abs(number);
    const bool plain = number == 0 || (magnitude >= 1e-5 && magnitude < 1e15);
    return plain ? std::chars_format::fixed : std::chars_format::scientific;
}

// Prints a number that has at most three decimals, as most measured values have, in a fifth of the time; false for
// others. A quotient of two whole numbers is rounded as the decimal text is when it is read (IEEE 754): where it gives
// the number back so does the text, and none of fewer digits does.
bool PrintDecimals(EString& text, double number) {
    constexpr double LIMIT = 100'000;
    if (!(number > -LIMIT && number < LIMIT) || number == 0) {
        return false; // zero has two signs
    }
    const double magnitude = std::abs(number);
    double scale = 1;
    int decimals = 0;
    auto whole = static_cast<std::uint32_t>(magnitude);
    while (whole / scale != magnitude) {
        if (++decimals > 3) {
            return false;
        }
        scale *= 10;
        whole = static_cast<std::uint32_t>(std::lround(magnitude * scale));
    }
    wchar_t wide[ROOM];
    wchar_t* at = wide + ROOM - 1;
    *at = L'\0';
    for (int i = 0; i <= decimals || whole > 0; ++i, whole /= 10) {
        if (i == decimals && i > 0) {
            *--at = L'.';
        }
        *--at = static_cast<wchar_t>(L'0' + whole % 10);
    }
    if (number < 0) {
        *--at = L'-';
    }
    text = at;
    return true;
}

} // namespace

void CDataValue::SetBoolean(bool value) {
    m_Type = Type::Boolean;
    m_bBoolean = value;
}

void CDataValue::SetInteger(std::int64_t value) {
    m_Type = Type::Integer;
    m_nInteger = value;
}

void CDataValue::SetDouble(double value) {
    m_Type = Type::Double;
    m_Double = value;
}

void CDataValue::SetText(const wchar_t* text) {
    m_Type = Type::Text;
    m_pszText = OrEmpty(text);
}

void CDataValue::GetString(EString& text, int /*option1*/, int /*option2*/, int /*option3*/) const {
    switch (m_Type) {
    case Type::Nothing:
        text.Empty();
        break;
    case Type::Boolean:
        text = m_bBoolean ? L"true" : L"false";
        break;
    case Type::Integer:
        Print(text, m_nInteger);
        break;
    case Type::Double:
        if (!PrintDecimals(text, m_Double)) {
            Print(text, m_Double, FormatOf(m_Double));
        }
        break;
    case Type::Text:
        text = m_pszText;
        break;
    }
}
