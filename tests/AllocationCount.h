#pragma once

#include <algorithm>
#include <cstddef>

// Counts what the current thread allocates from the construction on, in a program without sanitizers.
class AllocationCount {
public:
    AllocationCount() { s_nCount = s_nLargest = 0; }
    std::size_t Count() const { return s_nCount; }
    std::size_t Largest() const { return s_nLargest; } // in bytes

    static void Note(std::size_t size) {
        ++s_nCount;
        s_nLargest = std::max(s_nLargest, size);
    }

private:
    static inline thread_local std::size_t s_nCount = 0;
    static inline thread_local std::size_t s_nLargest = 0;
};
