#include "base/EUtility.h"

#include <algorithm>
#include <iterator>

#include <utf8/checked.h>
#include <utf8/unchecked.h>

void EUtility::Utf8Encode(const wchar_t* text, EByteArray& bytes) {
    const std::string encoded = Narrow(text);
    const int end = bytes.GetSize();
    bytes.SetSize(end + static_cast<int>(encoded.size()), -1);
    std::copy(encoded.begin(), encoded.end(), bytes.GetData() + end);
}

EString Widen(const std::string& text) {
    const auto isNotAscii = [](char c) { return static_cast<unsigned char>(c) >= 0x80; };
    const auto rest = std::find_if(text.begin(), text.end(), isNotAscii); // mostly there is none
    std::wstring wide(text.begin(), rest);
    if (!utf8::is_valid(rest, text.end())) {
        return {};
    }
    utf8::unchecked::utf8to32(rest, text.end(), std::back_inserter(wide));
    return {wide.data(), wide.size()};
}

std::string Narrow(const wchar_t* text) {
    std::string bytes;
    for (text = OrEmpty(text); *text != L'\0'; ++text) {
        try {
            utf8::append(static_cast<char32_t>(*text), std::back_inserter(bytes));
        } catch (const utf8::invalid_code_point&) {
            bytes += "\uFFFD";
        }
    }
    return bytes;
}
