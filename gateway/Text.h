#pragma once

#include "base/EString.h"

#include <cstdint>
#include <string>

// Between the UTF-8 texts of the gateway and the wide texts of the module. What has no counterpart becomes U+FFFD or,
// for bytes that are not UTF-8, an empty text.
EString Widen(const std::string& text);
std::string Narrow(const wchar_t* text);

// "name@7" is the name that is unique for identifier 7; a name without "@" and digits at its end carries none, -1.
// SplitName takes the identifier off the name, and returns it.
int SplitName(std::string& name);
std::string JoinName(const std::string& name, int id);

std::string Plural(std::int64_t count, const std::string& noun); // "1 row", "2 rows"
