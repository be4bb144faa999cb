#pragma once

#include <cstdint>

// A moment: seconds since 1970-01-01 00:00:00 UTC (to 2106) and milliseconds. Both 0 counts as unset. Six bytes in
// memory and in files. The members may be unaligned: copy them, do not take their address.
struct __attribute__((packed)) ETimeStamp {
    std::uint32_t m_nSeconds = 0;
    std::uint16_t m_nMilliseconds = 0; // 0 to 999; more counts as 999

    bool IsSet() const { return m_nSeconds != 0 || m_nMilliseconds != 0; }
};

static_assert(sizeof(ETimeStamp) == 6);
