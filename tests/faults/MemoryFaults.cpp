#include "tests/faults/MemoryFaults.h"

#include "tests/kernel/InKernel.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<int> s_nLeft = 0; // allocations until the one that fails, that one included; below 1: none will
std::atomic<bool> s_bStruck = false;

void* Allocate(std::size_t size) noexcept {
    if (!InKernel::IsHere() && s_nLeft > 0 && --s_nLeft == 0) {
        s_bStruck = true;
        return nullptr;
    }
    return std::malloc(size > 0 ? size : 1);
}

void* AllocateOrThrow(std::size_t size) {
    void* room = Allocate(size);
    if (room == nullptr) {
        throw std::bad_alloc();
    }
    return room;
}

} // namespace

MemoryFault::MemoryFault(int nth) {
    s_bStruck = false;
    s_nLeft = nth;
}

MemoryFault::~MemoryFault() {
    s_nLeft = 0;
}

bool MemoryFault::HasStruck() const {
    return s_bStruck;
}

// Every form, so that a sanitizer never sees one of its own meet one of these.
void* operator new(std::size_t size) {
    return AllocateOrThrow(size);
}
void* operator new[](std::size_t size) {
    return AllocateOrThrow(size);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return Allocate(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return Allocate(size);
}
void operator delete(void* room) noexcept {
    std::free(room);
}
void operator delete[](void* room) noexcept {
    std::free(room);
}
void operator delete(void* room, std::size_t) noexcept {
    std::free(room);
}
void operator delete[](void* room, std::size_t) noexcept {
    std::free(room);
}
void operator delete(void* room, const std::nothrow_t&) noexcept {
    std::free(room);
}
void operator delete[](void* room, const std::nothrow_t&) noexcept {
    std::free(room);
}
