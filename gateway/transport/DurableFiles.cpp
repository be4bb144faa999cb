#include "gateway/transport/DurableFiles.h"

#include <cerrno>
#include <fcntl.h>
#include <system_error>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

[[noreturn]] void Fail(const fs::path& path) {
    throw std::system_error(errno, std::generic_category(), path.string());
}

void Sync(int file, const fs::path& path) {
    if (fsync(file) != 0) {
        Fail(path);
    }
}

} // namespace

EOpenFile::EOpenFile(const fs::path& path, int flags, unsigned mode)
    : m_nFile(open(path.c_str(), flags | O_CLOEXEC, mode)) {
    if (m_nFile < 0) {
        Fail(path);
    }
}

EOpenFile::~EOpenFile() {
    close(m_nFile);
}

void SyncPath(const fs::path& path) {
    Sync(EOpenFile(path, O_RDONLY).Get(), path);
}

void WriteDurably(const fs::path& path, std::string_view bytes) {
    const EOpenFile file(path, O_WRONLY | O_CREAT | O_EXCL);
    while (!bytes.empty()) {
        const ssize_t written = write(file.Get(), bytes.data(), bytes.size());
        if (written >= 0) {
            bytes.remove_prefix(static_cast<std::size_t>(written));
        } else if (errno != EINTR) {
            Fail(path);
        }
    }
    Sync(file.Get(), path);
}

void LinkOrCopy(const fs::path& from, const fs::path& to) {
    // Another file system, one without links, or a file of another owner: then it is copied.
    if (linkat(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), AT_SYMLINK_FOLLOW) != 0) {
        fs::copy_file(from, to);
    }
    SyncPath(to);
}

void CopyDurably(const fs::path& from, const fs::path& to) {
    fs::copy_file(from, to, fs::copy_options::overwrite_existing);
    SyncPath(to);
}

void RenameDurably(const fs::path& from, const fs::path& to) {
    fs::rename(from, to);
    SyncPath(to.parent_path());
}
