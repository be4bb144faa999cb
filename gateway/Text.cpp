#include "gateway/Text.h"

#include "base/EUtility.h"

#include <charconv>

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

int SplitName(std::string& name) {
    const std::size_t at = name.rfind('@');
    if (at == std::string::npos || at == 0) {
        return -1;
    }
    const std::string plain = name.substr(0, at);
    int id = -1;
    std::from_chars(name.data() + at + 1, name.data() + name.size(), id);
    if (id < 0 || JoinName(plain, id) != name) { // "name@07" is a plain name
        return -1;
    }
    name = plain;
    return id;
}

std::string JoinName(const std::string& name, int id) {
    return id < 0 ? name : name + '@' + std::to_string(id);
}

std::string Plural(std::int64_t count, const std::string& noun) {
    return std::to_string(count) + ' ' + noun + (count == 1 ? "" : "s");
}
