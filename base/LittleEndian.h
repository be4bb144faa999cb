#pragma once

#include <bit>
#include <cstdint>
#include <cstring>

// Numbers on disk have a fixed width and are little-endian. So are all targets: numbers are saved as they lie in
// memory.
static_assert(std::endian::native == std::endian::little);
static_assert(sizeof(wchar_t) == 4, "wide text is saved with 4 bytes a character");

// The longest text that is restored, in characters. The size in bytes of a longer one may not fit 32 bits.
constexpr std::uint32_t LONGEST_TEXT = 1U << 26U;

// Puts the number into the caller's bytes, and points behind it.
inline unsigned char* PutU16(unsigned char* out, std::uint16_t value) {
    std::memcpy(out, &value, sizeof value);
    return out + sizeof value;
}
