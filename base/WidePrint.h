#pragma once

#include "base/EString.h"

#include <algorithm>
#include <cwchar>

// Prints as EString::Format does into a buffer of `count` characters, terminator included. Returns the length of the
// text, or -1 when it did not fit and was cut. With a count of 0 nothing is written.
template <class... Arguments>
int _em_swprintf(wchar_t* buffer, std::size_t count, const wchar_t* format, const Arguments&... arguments) {
    if (count == 0) {
        return -1;
    }
    EString text;
    text.Format(format, arguments...);
    const auto length = static_cast<std::size_t>(text.GetLength());
    const std::size_t kept = std::min(length, count - 1);
    std::wmemcpy(buffer, text, kept);
    buffer[kept] = L'\0';
    return kept == length ? static_cast<int>(kept) : -1;
}
