#include "base/EString.h"
#include "base/LittleEndian.h"

#include <cerrno>
#include <cstdarg>
#include <cwchar>

namespace {

// Turns "%s" and "%c" into "%ls" and "%lc", with which vswprintf takes wide text.
std::wstring WithWideTexts(const wchar_t* format) {
    std::wstring out;
    out.reserve(2 * std::wcslen(format));
    bool inDirective = false;
    for (; *format != L'\0'; ++format) {
        if (inDirective && (*format == L's' || *format == L'c') && out.back() != L'l') {
            out += L'l';
        }
        out += *format;
        inDirective = inDirective ? std::wcschr(L"-+ #0123456789.*hljztL", *format) != nullptr : *format == L'%';
    }
    return out;
}

} // namespace

void EString::Print(const wchar_t* format, ...) {
    const std::wstring wideFormat = WithWideTexts(OrEmpty(format));
    std::wstring text(256, L'\0');
    int length = -1;
    while (length < 0 && text.size() <= LONGEST_TEXT) {
        std::va_list arguments;
        va_start(arguments, format);
        errno = 0;
        length = std::vswprintf(text.data(), text.size(), wideFormat.c_str(), arguments);
        va_end(arguments);
        if (length < 0 && errno == EINVAL) { // an invalid format, not a lack of room
            break;
        }
        text.resize(length < 0 ? 4 * text.size() : text.size());
    }
    text.resize(length < 0 ? 0 : static_cast<std::size_t>(length));
    m_Text = std::move(text);
}
