#include "gateway/outbox/DurableFiles.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <system_error>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

void Check(int result, const fs::path& path) {
    if (result < 0) {
        throw std::system_error(errno, std::generic_category(), path.string());
    }
}

// 0, or errno: EEXIST when there is something of that name.
int RenameToNew(const fs::path& from, const fs::path& to) {
    if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) {
        return 0;
    }
    if (errno != EINVAL) {
        return errno;
    }
    return link(from.c_str(), to.c_str()) == 0 && unlink(from.c_str()) == 0 ? 0 : errno; // as on NFS
}

} // namespace

OpenFile::OpenFile(int file, const fs::path& what) : m_nFile(file) {
    Check(file, what);
}

OpenFile::~OpenFile() {
    close(m_nFile);
}

void Sync(const fs::path& path) {
    Check(fsync(OpenFile(open(path.c_str(), O_RDONLY | O_CLOEXEC), path).Get()), path);
}

void MakeDirectory(const fs::path& path) {
    if (fs::is_directory(path)) {
        return;
    }
    const fs::path parent = fs::absolute(path).parent_path();
    MakeDirectory(parent);
    fs::create_directory(path);
    Sync(parent);
}

void MoveInto(const fs::path& file, const fs::path& directory, const std::string& part, unsigned& next) {
    MakeDirectory(directory);
    const fs::path name = file.filename();
    fs::path source = file;
    fs::path target = directory / name;
    int error = RenameToNew(source, target);
    if (error == EXDEV) {
        source = directory / part;
        fs::copy_file(file, source, fs::copy_options::overwrite_existing);
        Sync(source);
        error = RenameToNew(source, target);
    }
    while (error == EEXIST) {
        next = std::max(next, 2U);
        target = directory / (name.stem().string() + '~' + std::to_string(next++) + name.extension().string());
        error = RenameToNew(source, target);
    }
    errno = error;
    Check(error != 0 ? -1 : 0, target);
    Sync(directory);
}
