#include "base/EPRNG.h"

#include <chrono>
#include <random>

std::uint32_t EPRNG::GetInt32() {
    try {
        return std::random_device()();
    } catch (const std::exception&) { // a system without a source of entropy
        return static_cast<std::uint32_t>(std::chrono::system_clock::now().time_since_epoch().count());
    }
}
