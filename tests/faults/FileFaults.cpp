#include "tests/faults/FileFaults.h"

#include "tests/kernel/InKernel.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

namespace {

std::atomic<int> s_nLeft = 0; // calls until the one that fails, that one included; below 1: none will
std::atomic<FileCall> s_Call;
std::atomic<Failure> s_Failure;
std::atomic<bool> s_bStruck = false;
std::atomic<bool> s_bFull = false; // the next write fails as well
std::atomic<bool> s_bInterruptCut = false;

// Whether this call is to fail.
bool Strikes(FileCall call) {
    if (InKernel::IsHere() || s_Call != call || s_nLeft < 1 || --s_nLeft != 0) {
        return false;
    }
    s_bStruck = true;
    return true;
}

int Fail(Failure failure) {
    switch (failure) {
    case Failure::InOut:
        errno = EIO;
        break;
    case Failure::Access:
        errno = EACCES;
        break;
    case Failure::TooManyFiles:
        errno = EMFILE;
        break;
    case Failure::Interrupted:
        errno = EINTR;
        break;
    default:
        errno = ENOSPC;
    }
    return -1;
}

// How much of the length is to be transferred; -1 when the call fails.
ssize_t Allowed(FileCall call, std::size_t length) {
    if (!InKernel::IsHere() && s_bFull.exchange(false)) {
        return Fail(Failure::NoSpace);
    }
    if (!Strikes(call)) {
        return static_cast<ssize_t>(length);
    }
    s_bFull = s_bInterruptCut = s_Failure == Failure::DiskFull;
    if (s_Failure == Failure::Short || s_Failure == Failure::DiskFull) {
        return static_cast<ssize_t>(std::max<std::size_t>(length / 2, 1));
    }
    return Fail(s_Failure);
}

// The C library's own; these two have no other call that does the same.
template <class Function>
Function* Next(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

} // namespace

FileFault::FileFault(FileCall call, int nth, Failure failure) {
    s_bStruck = s_bFull = s_bInterruptCut = false;
    s_Call = call;
    s_Failure = failure;
    s_nLeft = nth;
}

FileFault::~FileFault() {
    s_nLeft = 0;
    s_bFull = s_bInterruptCut = false;
}

bool FileFault::HasStruck() const {
    return s_bStruck;
}

// The declarations of <fcntl.h> and its like name the calls for large files and times where the target has such ones,
// and so do these definitions.
#pragma GCC visibility push(default)

int open(const char* path, int flags, ...) {
    std::va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    if (Strikes(FileCall::Open)) {
        return Fail(s_Failure);
    }
    return openat(AT_FDCWD, path, flags, mode);
}

int close(int file) {
    const bool strikes = Strikes(FileCall::Close);
    const auto result = static_cast<int>(syscall(SYS_close, file)); // also when it fails, the descriptor is gone
    return strikes ? Fail(s_Failure) : result;
}

int fstat(int file, struct stat* status) noexcept {
    return Strikes(FileCall::FStat) ? Fail(s_Failure) : fstatat(file, "", status, AT_EMPTY_PATH);
}

int stat(const char* path, struct stat* status) noexcept {
    return Strikes(FileCall::Stat) ? Fail(s_Failure) : fstatat(AT_FDCWD, path, status, 0);
}

ssize_t pwrite(int file, const void* bytes, std::size_t length, off_t at) {
    const ssize_t allowed = Allowed(FileCall::PWrite, length);
    const iovec part{const_cast<void*>(bytes), static_cast<std::size_t>(std::max<ssize_t>(allowed, 0))};
    return allowed < 0 ? -1 : pwritev(file, &part, 1, at);
}

ssize_t pread(int file, void* bytes, std::size_t length, off_t at) {
    const ssize_t allowed = Allowed(FileCall::PRead, length);
    const iovec part{bytes, static_cast<std::size_t>(std::max<ssize_t>(allowed, 0))};
    return allowed < 0 ? -1 : preadv(file, &part, 1, at);
}

int ftruncate(int file, off_t length) noexcept {
    if (!InKernel::IsHere() && s_bInterruptCut.exchange(false)) {
        return Fail(Failure::Interrupted);
    }
    return Next<int(int, off_t)>("ftruncate64")(file, length);
}

int truncate(const char* path, off_t length) noexcept {
    return Strikes(FileCall::Truncate) ? Fail(s_Failure) : Next<int(const char*, off_t)>("truncate64")(path, length);
}

int rename(const char* from, const char* to) noexcept {
    return Strikes(FileCall::Rename) ? Fail(s_Failure) : renameat(AT_FDCWD, from, AT_FDCWD, to);
}

int unlink(const char* path) noexcept {
    return Strikes(FileCall::Unlink) ? Fail(s_Failure) : unlinkat(AT_FDCWD, path, 0);
}

int mkdir(const char* path, mode_t mode) noexcept {
    return Strikes(FileCall::MkDir) ? Fail(s_Failure) : mkdirat(AT_FDCWD, path, mode);
}

int rmdir(const char* path) noexcept {
    return Strikes(FileCall::RmDir) ? Fail(s_Failure) : unlinkat(AT_FDCWD, path, AT_REMOVEDIR);
}

#pragma GCC visibility pop
