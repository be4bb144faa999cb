#include "base/EUtility.h"

#include <cstdint>
#include <string>

namespace {

bool IsScalarValue(std::uint32_t value) {
    return value < 0xD800 || (value > 0xDFFF && value <= 0x10FFFF);
}

// The number of bytes that a sequence with this first byte has, and the bits of the character that are in it; 0 for a
// byte that begins no sequence.
std::size_t SequenceLength(unsigned char first, std::uint32_t& bits) {
    if (first < 0x80) {
        bits = first;
        return 1;
    }
    if (first >= 0xC2 && first < 0xE0) {
        bits = first & 0x1FU;
        return 2;
    }
    if (first >= 0xE0 && first < 0xF0) {
        bits = first & 0x0FU;
        return 3;
    }
    if (first >= 0xF0 && first < 0xF5) {
        bits = first & 0x07U;
        return 4;
    }
    return 0;
}

// Decodes the sequence at `bytes`; its length, or 0 when it is not well-formed.
std::size_t DecodeSequence(const unsigned char* bytes, std::size_t left, std::uint32_t& value) {
    const std::size_t length = SequenceLength(bytes[0], value);
    if (length == 0 || length > left) {
        return 0;
    }
    for (std::size_t i = 1; i < length; ++i) {
        if ((bytes[i] & 0xC0U) != 0x80) {
            return 0;
        }
        value = (value << 6) | (bytes[i] & 0x3FU);
    }
    const bool overlong = (length == 3 && value < 0x800) || (length == 4 && value < 0x10000);
    return overlong || !IsScalarValue(value) ? 0 : length;
}

} // namespace

std::size_t EUtility::Utf8EncodeCharacter(wchar_t character, unsigned char bytes[4]) {
    const auto value = static_cast<std::uint32_t>(character);
    if (value < 0x80) {
        bytes[0] = static_cast<unsigned char>(value);
        return 1;
    }
    if (!IsScalarValue(value)) {
        return 0;
    }
    const std::size_t length = value < 0x800 ? 2 : value < 0x10000 ? 3 : 4;
    std::uint32_t rest = value;
    for (std::size_t i = length - 1; i > 0; --i) {
        bytes[i] = static_cast<unsigned char>(0x80U | (rest & 0x3FU));
        rest >>= 6;
    }
    const std::uint32_t mark = length == 2 ? 0xC0U : length == 3 ? 0xE0U : 0xF0U;
    bytes[0] = static_cast<unsigned char>(mark | rest);
    return length;
}

void EUtility::Utf8Encode(const wchar_t* text, EByteArray& bytes) {
    constexpr wchar_t REPLACEMENT = 0xFFFD;
    for (; text != nullptr && *text != L'\0'; ++text) {
        unsigned char sequence[4];
        std::size_t length = Utf8EncodeCharacter(*text, sequence);
        if (length == 0) {
            length = Utf8EncodeCharacter(REPLACEMENT, sequence);
        }
        const int end = bytes.GetSize();
        bytes.SetSize(end + static_cast<int>(length), -1);
        for (std::size_t i = 0; i < length; ++i) {
            bytes.GetData()[static_cast<std::size_t>(end) + i] = sequence[i];
        }
    }
}

bool EUtility::Utf8Decode(const char* bytes, std::size_t length, EString& text) {
    const auto* at = reinterpret_cast<const unsigned char*>(bytes);
    std::wstring decoded;
    decoded.reserve(length);
    while (length > 0) {
        std::uint32_t value = 0;
        const std::size_t count = DecodeSequence(at, length, value);
        if (count == 0) {
            return false;
        }
        decoded += static_cast<wchar_t>(value);
        at += count;
        length -= count;
    }
    text = EString(decoded.data(), decoded.size());
    return true;
}
