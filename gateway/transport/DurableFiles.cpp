#include "gateway/transport/DurableFiles.h"

#include <cerrno>
#include <fcntl.h>
#include <system_error>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

const char* const PART = ".part-"; // stands in the name of a file that is still being written

// `result` is a system call's; below 0 it has failed.
ssize_t Check(ssize_t result, const fs::path& path) {
    if (result < 0) {
        throw std::system_error(errno, std::generic_category(), path.string());
    }
    return result;
}

} // namespace

EOpenFile::EOpenFile(const fs::path& path, int flags, unsigned mode)
    : m_nFile(open(path.c_str(), flags | O_CLOEXEC, mode)) {
    Check(m_nFile, path);
}

EOpenFile::~EOpenFile() {
    close(m_nFile);
}

void SyncPath(const fs::path& path) {
    Check(fsync(EOpenFile(path, O_RDONLY).Get()), path);
}

void WriteWholly(const fs::path& path, std::string_view bytes) {
    const fs::path part = path.string() + PART;
    {
        const EOpenFile file(part, O_WRONLY | O_CREAT | O_EXCL);
        while (!bytes.empty()) {
            bytes.remove_prefix(static_cast<std::size_t>(Check(write(file.Get(), bytes.data(), bytes.size()), part)));
        }
        Check(fsync(file.Get()), part);
    }
    fs::rename(part, path);
    SyncPath(path.parent_path());
}

void LinkOrCopy(const fs::path& from, const fs::path& to) {
    // Another file system, one without links, or a file of another owner: then it is copied.
    if (linkat(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), AT_SYMLINK_FOLLOW) != 0) {
        fs::copy_file(from, to);
    }
    SyncPath(to);
}

void CopyInto(const fs::path& from, const fs::path& directory, const std::string& name) {
    fs::create_directories(directory);
    // Not a longer form of the name, which may be as long as names can be, and not one that another program's spool has.
    const fs::path part = directory / (PART + std::to_string(fs::hash_value(from)));
    fs::copy_file(from, part, fs::copy_options::overwrite_existing);
    SyncPath(part);
    fs::rename(part, directory / name);
    SyncPath(directory);
}
