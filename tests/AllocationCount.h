#pragma once

#include <cstddef>

// Counts what the current thread allocates from the construction on.
class AllocationCount {
public:
    AllocationCount();
    std::size_t Count() const;
    std::size_t Largest() const; // in bytes
};
