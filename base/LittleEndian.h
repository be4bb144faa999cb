#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cwchar>

// Fixed-width little-endian numbers, as everything on disk has them. Put* returns the end
// of what it wrote; the room is the caller's to provide.

static_assert(sizeof(wchar_t) == 4, "wide text has 32-bit characters");
static_assert(std::endian::native == std::endian::little, "and is saved as it stands in memory");

// The longest text that is restored, in characters. Beyond it, a size in bytes would not be a 32-bit target's to hold.
constexpr std::uint32_t LONGEST_TEXT = 1U << 26U;

inline unsigned char* PutU16(unsigned char* out, std::uint16_t value) {
    out[0] = static_cast<unsigned char>(value);
    out[1] = static_cast<unsigned char>(value >> 8);
    return out + 2;
}

inline unsigned char* PutU32(unsigned char* out, std::uint32_t value) {
    return PutU16(PutU16(out, static_cast<std::uint16_t>(value)), static_cast<std::uint16_t>(value >> 16));
}

inline unsigned char* PutU64(unsigned char* out, std::uint64_t value) {
    return PutU32(PutU32(out, static_cast<std::uint32_t>(value)), static_cast<std::uint32_t>(value >> 32));
}

inline std::uint16_t GetU16(const unsigned char* in) {
    return static_cast<std::uint16_t>(in[0] | (in[1] << 8));
}

inline std::uint32_t GetU32(const unsigned char* in) {
    return GetU16(in) | (static_cast<std::uint32_t>(GetU16(in + 2)) << 16);
}

inline std::uint64_t GetU64(const unsigned char* in) {
    return GetU32(in) | (static_cast<std::uint64_t>(GetU32(in + 4)) << 32);
}
