#include "base/CDataValue.h"

#include "base/EString.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cmath>

namespace {

constexpr std::size_t ROOM = 32; // the longest doubles, as -2.2250738585072014e-308, have 24 characters

// Prints the fewest digits that read back as the same number.
template <class Number, class... Format>
void Print(EString& text, Number number, Format... format) {
    char digits[ROOM];
    wchar_t wide[ROOM];
    const char* const end = std::to_chars(digits, digits + ROOM - 1, number, format...).ptr;
    *std::copy(static_cast<const char*>(digits), end, wide) = L'\0';
    text = wide;
}

// Only very small and very large numbers have an exponent, so that a column of measured values has one notation.
std::chars_format FormatOf(double number) {
    const double magnitude = std::abs(number);
    const bool plain = number == 0 || (magnitude >= 1e-5 && magnitude < 1e15);
    return plain ? std::chars_format::fixed : std::chars_format::scientific;
}

// Prints a number that has at most three decimals, as most measured values have, in a fifth of the time; false for
// others. IEEE 754 rounds a quotient of two whole numbers as it rounds the decimal text: if whole / scale is the
// number, its text reads back as the number.
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
    m_nBits = value ? 1 : 0;
}

void CDataValue::SetInteger(std::int64_t value) {
    m_Type = Type::Integer;
    m_nBits = static_cast<std::uint64_t>(value);
}

void CDataValue::SetDouble(double value) {
    m_Type = Type::Double;
    m_nBits = std::bit_cast<std::uint64_t>(value);
}

void CDataValue::SetText(const wchar_t* text) {
    m_Type = Type::Text;
    m_pszText = OrEmpty(text);
}

bool CDataValue::SetBits(Type type, std::uint64_t bits) {
    if (type > Type::Text) {
        return false;
    }
    if (type == Type::Text) {
        SetText(nullptr);
    } else {
        m_Type = type;
        m_nBits = bits;
    }
    return true;
}

void CDataValue::GetString(EString& text, int /*option1*/, int /*option2*/, int /*option3*/) const {
    switch (m_Type) {
    case Type::Nothing:
        text.Empty();
        break;
    case Type::Boolean:
        text = m_nBits != 0 ? L"true" : L"false";
        break;
    case Type::Integer:
        Print(text, static_cast<std::int64_t>(m_nBits));
        break;
    case Type::Double:
        if (const auto number = std::bit_cast<double>(m_nBits); !PrintDecimals(text, number)) {
            Print(text, number, FormatOf(number));
        }
        break;
    case Type::Text:
        text = m_pszText;
        break;
    }
}
