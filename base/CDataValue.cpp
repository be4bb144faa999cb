#include "base/CDataValue.h"

#include "base/EString.h"

#include <charconv>

namespace {

template <class Number>
void PrintShortest(EString& text, Number number) {
    char digits[32] = {}; // the longest double, -2.2250738585072014e-308, has 24
    const char* end = std::to_chars(digits, digits + sizeof digits, number).ptr;
    text.Empty();
    for (const char* at = digits; at != end; ++at) {
        text += static_cast<wchar_t>(*at);
    }
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
    m_pszText = text != nullptr ? text : L"";
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
        PrintShortest(text, m_nInteger);
        break;
    case Type::Double:
        PrintShortest(text, m_Double);
        break;
    case Type::Text:
        text = m_pszText;
        break;
    }
}
