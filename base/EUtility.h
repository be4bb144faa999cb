#pragma once

#include "base/EByteArray.h"
#include "base/EString.h"

#include <string>

class KVBASE_API EUtility {
public:
    // Appends the bytes of the text, as Narrow gives them: no terminator, no byte order mark.
    static void Utf8Encode(const wchar_t* text, EByteArray& bytes);
};

// Between UTF-8 (RFC 3629) and wide text. A character without a UTF-8 form (a surrogate, a value above U+10FFFF)
// becomes U+FFFD; bytes that are not UTF-8 become an empty text.
KVBASE_API EString Widen(const std::string& text);
KVBASE_API std::string Narrow(const wchar_t* text);
