#pragma once

#include "base/Export.h"

#include <cstdint>

// A pseudo-random generator for names, not for secrets. Any thread may ask.
class KVBASE_API EPRNG {
public:
    // Uniform over all 32-bit numbers (SplitMix64; Steele, Lea, Flood: Fast Splittable Pseudorandom Number Generators).
    static std::uint32_t GetInt32();
};
