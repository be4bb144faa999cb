#pragma once

#include "base/EByteArray.h"
#include "base/EString.h"

#include <cstddef>
#include <string>

// UTF-8 (RFC 3629) from wide text. A character that is no Unicode scalar value (a surrogate, a value above U+10FFFF) has
// no UTF-8 form.
class KVBASE_API EUtility {
public:
    // Appends the bytes of the text, as Narrow gives them: no terminator, no byte order mark.
    static void Utf8Encode(const wchar_t* text, EByteArray& bytes);

    // The bytes of one character into `bytes`; their number, or 0 when it has no UTF-8 form.
    static std::size_t Utf8EncodeCharacter(wchar_t character, unsigned char bytes[4]);
};

// Between UTF-8 and wide text. A character without a UTF-8 form becomes U+FFFD; bytes that are not UTF-8 become an empty
// text.
KVBASE_API EString Widen(const std::string& text);
KVBASE_API std::string Narrow(const wchar_t* text);
