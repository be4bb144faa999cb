#include "base/EPRNG.h"

#include <atomic>
#include <chrono>
#include <random>

namespace {

std::uint64_t Seed() {
    const auto now = static_cast<std::uint64_t>(std::chrono::system_clock::now().time_since_epoch().count());
    try {
        std::random_device device;
        return now ^ (static_cast<std::uint64_t>(device()) << 32 | device());
    } catch (const std::exception&) {
        return now; // a system without a source of entropy
    }
}

} // namespace

std::uint32_t EPRNG::GetInt32() {
    constexpr std::uint64_t GOLDEN = 0x9E3779B97F4A7C15;
    static std::atomic<std::uint64_t> state{Seed()};
    std::uint64_t mix = state.fetch_add(GOLDEN) + GOLDEN;
    mix = (mix ^ (mix >> 30)) * 0xBF58476D1CE4E5B9;
    mix = (mix ^ (mix >> 27)) * 0x94D049BB133111EB;
    return static_cast<std::uint32_t>((mix ^ (mix >> 31)) >> 32);
}
