#include "tests/AllocationCount.h"

#include <cstdlib>
#include <new>

// The sanitizers check which operator gave an allocation and which takes it back, so theirs stay; nothing is counted then.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)

void* operator new(std::size_t size) {
    AllocationCount::Note(size);
    if (void* room = std::malloc(size > 0 ? size : 1); room != nullptr) {
        return room;
    }
    throw std::bad_alloc();
}

void operator delete(void* room) noexcept {
    std::free(room);
}

void operator delete(void* room, std::size_t) noexcept {
    std::free(room);
}

#endif
