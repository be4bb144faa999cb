#pragma once

#include <cstdio>
#include <cstdlib>

// Ends the fuzzer with a finding unless the condition holds.
inline void Require(bool condition, const char* what) {
    if (!condition) {
        std::fprintf(stderr, "does not hold: %s\n", what);
        std::abort();
    }
}
