#include "gateway/Text.h"

#include "base/EUtility.h"

EString Widen(const std::string& text) {
    EString wide;
    EUtility::Utf8Decode(text.data(), text.size(), wide);
    return wide;
}

std::string Narrow(const wchar_t* text) {
    EByteArray bytes;
    EUtility::Utf8Encode(text, bytes);
    return {reinterpret_cast<const char*>(bytes.GetData()), static_cast<std::size_t>(bytes.GetSize())};
}
