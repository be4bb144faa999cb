#include "tests/AllocationCount.h"

#include <algorithm>
#include <cstdlib>
#include <new>

namespace {

thread_local std::size_t s_nCount = 0;
thread_local std::size_t s_nLargest = 0;

void Note(std::size_t size) {
    ++s_nCount;
    s_nLargest = std::max(s_nLargest, size);
}

} // namespace

AllocationCount::AllocationCount() {
    s_nCount = s_nLargest = 0;
}

std::size_t AllocationCount::Count() const {
    return s_nCount;
}

std::size_t AllocationCount::Largest() const {
    return s_nLargest;
}

#ifndef __has_feature
#define __has_feature(name) 0
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || __has_feature(address_sanitizer) ||               \
    __has_feature(thread_sanitizer)

// The sanitizers check which operator gave an allocation and which takes it back; their hook leaves that in place.
extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*onMalloc)(const volatile void*, std::size_t),
                                                         void (*onFree)(const volatile void*));

[[maybe_unused]] static const int s_nHooked = __sanitizer_install_malloc_and_free_hooks(
    [](const volatile void*, std::size_t size) { Note(size); }, [](const volatile void*) {});

#else

void* operator new(std::size_t size) {
    Note(size);
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
