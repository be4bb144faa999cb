#pragma once

#include "base/EByteArray.h"
#include "base/EString.h"

#include <cstddef>

// UTF-8 (RFC 3629) to and from wide text.
class KVBASE_API EUtility {
public:
    // Appends the UTF-8 bytes of the text: no terminator, no byte order mark. A character that is no Unicode scalar
    // value (a surrogate, a value above U+10FFFF) becomes U+FFFD.
    static void Utf8Encode(const wchar_t* text, EByteArray& bytes);

    // The bytes of one character into `bytes`; their number, or 0 when the character is no scalar value.
    static std::size_t Utf8EncodeCharacter(wchar_t character, unsigned char bytes[4]);

    // Replaces `text` by the wide form of `length` bytes; false, and `text` as before, when they are not UTF-8.
    static bool Utf8Decode(const char* bytes, std::size_t length, EString& text);
};
