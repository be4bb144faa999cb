#include "base/EJsonWalker.h"

#include "base/EUtility.h"

#include <algorithm>
#include <charconv>
#include <cstdio>

namespace {

bool IsContinuation(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U;
}

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

// What numbers and words are made of.
bool IsWordCharacter(char c) {
    return IsDigit(c) || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '+' || c == '-' || c == '.' ||
           c == '_';
}

// The value of an escape "\uXXXX"; -1 when the text does not begin with one.
int EscapedUnit(std::string_view text) {
    if (text.size() < 6 || !text.starts_with("\\u")) {
        return -1;
    }
    unsigned unit = 0;
    const char* end = text.data() + 6;
    return std::from_chars(text.data() + 2, end, unit, 16).ptr == end ? static_cast<int>(unit) : -1;
}

} // namespace

EJsonWalker::EJsonWalker(std::string_view text) : m_Text(text) {
    if (text.starts_with("\xEF\xBB\xBF")) {
        m_nOffset = 3;
    }
}

void EJsonWalker::Step(std::size_t bytes) {
    for (; bytes > 0 && !AtEnd(); --bytes, ++m_nOffset) {
        const char c = m_Text[m_nOffset];
        if (c == '\n') {
            ++m_Place.m_nLine;
            m_Place.m_nColumn = 1;
        } else if (!IsContinuation(c)) {
            ++m_Place.m_nColumn;
        }
    }
}

void EJsonWalker::StepTo(std::size_t offset) {
    Step(offset > m_nOffset ? offset - m_nOffset : 0);
}

void EJsonWalker::SkipBlank() {
    for (;;) {
        StepTo(m_Text.find_first_not_of(" \t\r\n", m_nOffset));
        if (Rest().starts_with("//")) {
            StepTo(m_Text.find_first_of("\r\n", m_nOffset));
            continue;
        }
        const std::size_t end = Rest().starts_with("/*") ? m_Text.find("*/", m_nOffset + 2) : std::string_view::npos;
        if (end == std::string_view::npos) {
            return;
        }
        StepTo(end + 2);
    }
}

bool EJsonWalker::Eat(char c) {
    SkipBlank();
    if (Peek() != c) {
        return false;
    }
    Step();
    return true;
}

void EJsonWalker::SkipText() {
    Step();
    while (!AtEnd() && Peek() != '"') {
        Step(Peek() == '\\' ? 2 : 1);
    }
    Step();
}

void EJsonWalker::SkipDigits() {
    while (IsDigit(Peek())) {
        Step();
    }
}

std::string EJsonWalker::SkipNumber() {
    const std::size_t begin = m_nOffset;
    Step(Peek() == '-' ? 1 : 0);
    if (Peek() == '0') {
        Step(); // that is all before the point: "01" is two numbers
    } else {
        SkipDigits();
    }
    if (Peek() == '.') {
        Step();
        SkipDigits();
    }
    if (Peek() == 'e' || Peek() == 'E') {
        Step();
        Step(Peek() == '+' || Peek() == '-' ? 1 : 0);
        SkipDigits();
    }
    return std::string(m_Text.substr(begin, m_nOffset - begin));
}

std::optional<EJsonWalker::Fault> EJsonWalker::FindTextFault() {
    for (Step(); !AtEnd();) {
        const auto c = static_cast<unsigned char>(Peek());
        if (c == '"') {
            return std::nullopt;
        }
        if (c < 0x20U) {
            return Fault{c == '\n' || c == '\r' ? "the end of the line" : DescribeByte(), "'\"' or an escape"};
        }
        const std::size_t length = c == '\\' ? EscapeLength() : c < 0x80U ? 1 : CharacterLength();
        if (length == 0) {
            return c == '\\' ? DescribeEscape() : Fault{DescribeByte(), "UTF-8"};
        }
        Step(length);
    }
    return Fault{DescribeToken(), "'\"'"};
}

// The number of bytes of the character beyond ASCII that begins here; 0 when it is not UTF-8.
std::size_t EJsonWalker::CharacterLength() const {
    EString character;
    for (std::size_t length = 2; length <= std::min<std::size_t>(4, Rest().size()); ++length) {
        if (EUtility::Utf8Decode(Rest().data(), length, character)) {
            return length;
        }
    }
    return 0;
}

// The number of bytes of the escape that begins here, a surrogate pair being one; 0 when it is wrong.
std::size_t EJsonWalker::EscapeLength() const {
    if (Rest().size() > 1 && std::string_view("\"\\/bfnrt").find(Rest()[1]) != std::string_view::npos) {
        return 2;
    }
    const int unit = EscapedUnit(Rest());
    if (unit >= 0 && (unit < 0xD800 || unit > 0xDFFF)) {
        return 6;
    }
    const int second = Rest().size() > 6 ? EscapedUnit(Rest().substr(6)) : -1;
    const bool pair = unit >= 0xD800 && unit < 0xDC00 && second >= 0xDC00 && second <= 0xDFFF;
    return pair ? 12 : 0;
}

EJsonWalker::Fault EJsonWalker::DescribeEscape() const {
    if (EscapedUnit(Rest()) >= 0) {
        return {"half of a surrogate pair", R"(\uD800 to \uDBFF followed by \uDC00 to \uDFFF)"};
    }
    return {"an unknown escape", R"(one of \" \\ \/ \b \f \n \r \t \uXXXX)"};
}

std::string EJsonWalker::DescribeByte() const {
    char text[24];
    std::snprintf(text, sizeof(text), "the byte 0x%02X", static_cast<unsigned>(static_cast<unsigned char>(Peek())));
    return text;
}

std::string EJsonWalker::DescribeToken() const {
    const std::string_view rest = Rest();
    if (rest.empty()) {
        return "the end of the file";
    }
    if (rest[0] == '"') {
        return "a text";
    }
    if (rest.starts_with("/*")) {
        return "a comment that does not end";
    }
    const auto end = std::find_if_not(rest.begin(), rest.end(), IsWordCharacter);
    if (end != rest.begin()) {
        return std::string("'").append(Clip(std::string_view(rest.begin(), end))).append("'");
    }
    const bool printable = rest[0] > 0x20 && rest[0] < 0x7F;
    return printable ? std::string{'\'', rest[0], '\''} : DescribeByte();
}

std::string_view EJsonWalker::Clip(std::string_view text) {
    constexpr std::size_t SHOWN_BYTES_MAX = 60;
    std::size_t end = std::min(text.size(), SHOWN_BYTES_MAX);
    while (end > 0 && end < text.size() && IsContinuation(text[end])) {
        --end;
    }
    return text.substr(0, end);
}
