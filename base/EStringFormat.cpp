#include "base/EString.h"
#include "base/WidePrint.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cwchar>

// Wide text laid out like wprintf(3). Texts and characters are placed here, since "%s" is to take wide text; a number is
// laid out by snprintf from its own directive, or directly where the directive has nothing but the letter.

namespace {

struct Directive {
    bool m_bLeft = false;
    std::string m_Flags;   // as they stand, for snprintf
    int m_nWidth = 0;      // 0: none
    int m_nPrecision = -1; // -1: none
    std::string m_Length;  // hh h l ll j z t L
    wchar_t m_Conversion = L'\0';
};

// The arguments behind a type of their own, since a va_list may be an array that cannot be passed by reference.
struct Arguments {
    std::va_list m_List;
};

int ParseNumber(const wchar_t*& at, Arguments& arguments, bool& negative) {
    if (*at == L'*') {
        ++at;
        const int value = va_arg(arguments.m_List, int);
        negative = value < 0;
        return negative ? -value : value;
    }
    int value = 0;
    for (; *at >= L'0' && *at <= L'9'; ++at) {
        value = std::min(value * 10 + static_cast<int>(*at - L'0'), 1'000'000);
    }
    return value;
}

// `at` stands behind the percent sign, and behind the whole directive afterwards.
Directive Parse(const wchar_t*& at, Arguments& arguments) {
    Directive directive;
    for (; *at != L'\0' && std::wcschr(L"-+ #0", *at) != nullptr; ++at) {
        directive.m_bLeft = directive.m_bLeft || *at == L'-';
        directive.m_Flags += static_cast<char>(*at);
    }
    bool negative = false;
    directive.m_nWidth = ParseNumber(at, arguments, negative);
    if (negative) {
        directive.m_bLeft = true;
        directive.m_Flags += '-';
    }
    if (*at == L'.') {
        ++at;
        negative = false;
        directive.m_nPrecision = ParseNumber(at, arguments, negative);
        directive.m_nPrecision = negative ? -1 : directive.m_nPrecision;
    }
    for (; *at != L'\0' && std::wcschr(L"hljztL", *at) != nullptr; ++at) {
        directive.m_Length += static_cast<char>(*at);
    }
    directive.m_Conversion = *at;
    at += *at != L'\0' ? 1 : 0;
    return directive;
}

void Pad(std::wstring& out, int room) {
    if (room > 0) {
        out.append(static_cast<std::size_t>(room), L' ');
    }
}

void AppendText(std::wstring& out, const wchar_t* text, std::size_t length, const Directive& directive) {
    const int room = directive.m_nWidth - static_cast<int>(std::min<std::size_t>(length, 1'000'000));
    Pad(out, directive.m_bLeft ? 0 : room);
    out.append(text, length);
    Pad(out, directive.m_bLeft ? room : 0);
}

void AppendNarrow(std::wstring& out, const char* text, std::size_t length) {
    for (std::size_t i = 0; i < length; ++i) {
        out += static_cast<wchar_t>(text[i]);
    }
}

template <class Value>
void AppendByPrintf(std::wstring& out, const Directive& directive, const char* length, Value value) {
    std::string format = "%" + directive.m_Flags + "*.*" + length + static_cast<char>(directive.m_Conversion);
    // A width of 0 and a precision below 0 are as if they had not been given.
    const int count = std::snprintf(nullptr, 0, format.c_str(), directive.m_nWidth, directive.m_nPrecision, value);
    if (count <= 0) {
        return;
    }
    std::string text(static_cast<std::size_t>(count) + 1, '\0');
    std::snprintf(text.data(), text.size(), format.c_str(), directive.m_nWidth, directive.m_nPrecision, value);
    AppendNarrow(out, text.data(), static_cast<std::size_t>(count));
}

template <class Value>
void AppendInteger(std::wstring& out, const Directive& directive, Value value) {
    const bool decimal =
        directive.m_Conversion != L'x' && directive.m_Conversion != L'X' && directive.m_Conversion != L'o';
    if (decimal && directive.m_Flags.empty() && directive.m_nPrecision < 0) {
        char digits[24];
        const auto end = std::to_chars(digits, digits + sizeof digits, value).ptr;
        Pad(out, directive.m_nWidth - static_cast<int>(end - digits));
        AppendNarrow(out, digits, static_cast<std::size_t>(end - digits));
        return;
    }
    AppendByPrintf(out, directive, "j",
                   static_cast<std::conditional_t<std::is_signed_v<Value>, std::intmax_t, std::uintmax_t>>(value));
}

void AppendSigned(std::wstring& out, const Directive& directive, Arguments& arguments) {
    const std::string& length = directive.m_Length;
    if (length == "ll" || length == "j") {
        AppendInteger(out, directive, va_arg(arguments.m_List, long long));
    } else if (length == "l" || length == "z" || length == "t") {
        AppendInteger(out, directive, va_arg(arguments.m_List, long));
    } else {
        const int value = va_arg(arguments.m_List, int);
        AppendInteger(out, directive,
                      length == "hh"  ? static_cast<signed char>(value)
                      : length == "h" ? static_cast<short>(value)
                                      : value);
    }
}

void AppendUnsigned(std::wstring& out, const Directive& directive, Arguments& arguments) {
    const std::string& length = directive.m_Length;
    if (length == "ll" || length == "j") {
        AppendInteger(out, directive, va_arg(arguments.m_List, unsigned long long));
    } else if (length == "l" || length == "z" || length == "t") {
        AppendInteger(out, directive, va_arg(arguments.m_List, unsigned long));
    } else {
        const unsigned value = va_arg(arguments.m_List, unsigned);
        AppendInteger(out, directive,
                      length == "hh"  ? static_cast<unsigned char>(value)
                      : length == "h" ? static_cast<unsigned short>(value)
                                      : value);
    }
}

void AppendString(std::wstring& out, const Directive& directive, Arguments& arguments) {
    const wchar_t* text = va_arg(arguments.m_List, const wchar_t*);
    text = text != nullptr ? text : L"";
    const std::size_t length = directive.m_nPrecision < 0
                                   ? std::wcslen(text)
                                   : wcsnlen(text, static_cast<std::size_t>(directive.m_nPrecision));
    AppendText(out, text, length, directive);
}

// False when the conversion is not known.
bool AppendArgument(std::wstring& out, const Directive& directive, Arguments& arguments) {
    switch (directive.m_Conversion) {
    case L's':
        AppendString(out, directive, arguments);
        return true;
    case L'c': {
        const auto character = static_cast<wchar_t>(va_arg(arguments.m_List, std::wint_t));
        AppendText(out, &character, 1, directive);
        return true;
    }
    case L'd':
    case L'i':
        AppendSigned(out, directive, arguments);
        return true;
    case L'u':
    case L'o':
    case L'x':
    case L'X':
        AppendUnsigned(out, directive, arguments);
        return true;
    case L'f':
    case L'F':
    case L'e':
    case L'E':
    case L'g':
    case L'G':
    case L'a':
    case L'A':
        if (directive.m_Length == "L") {
            AppendByPrintf(out, directive, "L", va_arg(arguments.m_List, long double));
        } else {
            AppendByPrintf(out, directive, "", va_arg(arguments.m_List, double));
        }
        return true;
    default:
        return false;
    }
}

std::wstring Lay(const wchar_t* format, std::va_list list) {
    Arguments arguments;
    va_copy(arguments.m_List, list);
    std::wstring out;
    const wchar_t* at = format != nullptr ? format : L"";
    while (*at != L'\0') {
        const std::size_t plain = std::wcscspn(at, L"%");
        out.append(at, plain);
        at += plain;
        if (*at == L'\0') {
            break;
        }
        const wchar_t* begin = at++;
        if (*at == L'%') {
            out += *at++;
        } else if (const Directive directive = Parse(at, arguments); !AppendArgument(out, directive, arguments)) {
            out.append(begin, at);
        }
    }
    va_end(arguments.m_List);
    return out;
}

} // namespace

void EString::FormatV(const wchar_t* format, std::va_list arguments) {
    m_Text = Lay(format, arguments);
}

void EString::Format(const wchar_t* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    FormatV(format, arguments);
    va_end(arguments);
}

int _em_swprintf(wchar_t* buffer, std::size_t count, const wchar_t* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    const std::wstring text = Lay(format, arguments);
    va_end(arguments);
    if (count == 0) {
        return -1;
    }
    const std::size_t kept = std::min(text.size(), count - 1);
    std::wmemcpy(buffer, text.data(), kept);
    buffer[kept] = L'\0';
    return kept == text.size() ? static_cast<int>(kept) : -1;
}
