#include "tests/AllocationCount.h"

#include <cstdlib>
#include <new>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)

// The sanitizers check which operator gave an allocation and which takes it back; their hook leaves that in place.
extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*onMalloc)(const volatile void*, std::size_t),
                                                         void (*onFree)(const volatile void*));

[[maybe_unused]] static const int s_nHooked = __sanitizer_install_malloc_and_free_hooks(
    [](const volatile void*, std::size_t size) { AllocationCount::Note(size); }, [](const volatile void*) {});

#else

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
