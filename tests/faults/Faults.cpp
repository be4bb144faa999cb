#include "tests/faults/Faults.h"

#include "tests/kernel/InKernel.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>
#include <fcntl.h>
#include <new>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

namespace {

std::atomic<bool> s_bFull = false; // the next write fails as well
std::atomic<bool> s_bInterruptCut = false;

int Fail(int error) {
    errno = error;
    return -1;
}

template <class Work>
int Try(Call call, Work work) {
    return Fault::Strikes(call) ? Fail(Fault::s_nFailure) : work();
}

// The result of a transfer of the bytes, or of the half that is allowed.
template <class Transfer>
ssize_t TryPart(Call call, iovec part, Transfer transfer) {
    if (s_bFull.exchange(false)) {
        return Fail(ENOSPC);
    }
    if (Fault::Strikes(call)) {
        if (Fault::s_nFailure > 0) {
            return Fail(Fault::s_nFailure);
        }
        s_bFull = s_bInterruptCut = Fault::s_nFailure == DISK_FULL;
        part.iov_len = std::max<std::size_t>(part.iov_len / 2, 1);
    }
    return transfer(&part);
}

// The C library's own; these two have no other call that does the same.
template <class Function>
Function* Next(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

} // namespace

Fault::Fault(Call call, int nth, int failure) {
    s_bFull = s_bInterruptCut = false;
    s_Call = call;
    s_nFailure = failure;
    s_nLeft = nth;
}

bool Fault::Strikes(Call call) {
    return !InKernel::IsHere() && s_Call == call && s_nLeft > 0 && --s_nLeft == 0;
}

// The declarations of <fcntl.h> and its like name the calls for large files and times where the target has such ones,
// and so do these definitions.
#pragma GCC visibility push(default)

int open(const char* path, int flags, ...) {
    std::va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    return Try(Call::Open, [&] { return openat(AT_FDCWD, path, flags, mode); });
}
int close(int file) {
    const auto result = static_cast<int>(syscall(SYS_close, file)); // also when it fails, the descriptor is gone
    return Try(Call::Close, [&] { return result; });
}
int fstat(int file, struct stat* status) noexcept {
    return Try(Call::FStat, [&] { return fstatat(file, "", status, AT_EMPTY_PATH); });
}
int stat(const char* path, struct stat* status) noexcept {
    return Try(Call::Stat, [&] { return fstatat(AT_FDCWD, path, status, 0); });
}
ssize_t pwrite(int file, const void* bytes, std::size_t length, off_t at) {
    return TryPart(Call::PWrite, {const_cast<void*>(bytes), length},
                   [&](auto* part) { return pwritev(file, part, 1, at); });
}
ssize_t pread(int file, void* bytes, std::size_t length, off_t at) {
    return TryPart(Call::PRead, {bytes, length}, [&](auto* part) { return preadv(file, part, 1, at); });
}
int ftruncate(int file, off_t length) noexcept {
    return s_bInterruptCut.exchange(false) ? Fail(EINTR) : Next<int(int, off_t)>("ftruncate64")(file, length);
}
int truncate(const char* path, off_t length) noexcept {
    return Try(Call::Truncate, [&] { return Next<int(const char*, off_t)>("truncate64")(path, length); });
}
int rename(const char* from, const char* to) noexcept {
    return Try(Call::Rename, [&] { return renameat(AT_FDCWD, from, AT_FDCWD, to); });
}
int unlink(const char* path) noexcept {
    return Try(Call::Unlink, [&] { return unlinkat(AT_FDCWD, path, 0); });
}
int mkdir(const char* path, mode_t mode) noexcept {
    return Try(Call::MkDir, [&] { return mkdirat(AT_FDCWD, path, mode); });
}
int rmdir(const char* path) noexcept {
    return Try(Call::RmDir, [&] { return unlinkat(AT_FDCWD, path, AT_REMOVEDIR); });
}

#pragma GCC visibility pop

// Every form in use, so that a sanitizer never sees one of its own meet one of these.
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return Fault::Strikes(Call::Allocate) ? nullptr : std::malloc(size > 0 ? size : 1);
}
void* operator new(std::size_t size) {
    if (void* room = operator new[](size, std::nothrow); room != nullptr) {
        return room;
    }
    throw std::bad_alloc();
}
void* operator new[](std::size_t size) {
    return operator new(size);
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
