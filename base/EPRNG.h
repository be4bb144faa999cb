#pragma once

#include "base/Export.h"

#include <cstdint>

// Random numbers for names, not for secrets. Any thread may ask.
class KVBASE_API EPRNG {
public:
    // Uniform over all 32-bit numbers.
    static std::uint32_t GetInt32();
};
