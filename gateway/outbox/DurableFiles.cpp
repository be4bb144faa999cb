#include "gateway/outbox/DurableFiles.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <system_error>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

[[noreturn]] void Fail(int error, const fs::path& path) {
    throw std::system_error(error, std::generic_category(), path.string());
}

// 0, or errno: EEXIST when there is something of that name.
int RenameToNew(const fs::path& from, const fs::path& to) {
    if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) {
        return 0;
    }
    const bool isUnknown = errno == EINVAL; // as on NFS, where a link does not replace either
    return isUnknown && link(from.c_str(), to.c_str()) == 0 && unlink(from.c_str()) == 0 ? 0 : errno;
}

} // namespace

OpenFile::OpenFile(int file, const fs::path& what) : m_nFile(file) {
    if (file < 0) {
        Fail(errno, what);
    }
}

OpenFile::~OpenFile() {
    close(m_nFile);
}

void Sync(const fs::path& path) {
    if (fsync(OpenFile(open(path.c_str(), O_RDONLY | O_CLOEXEC), path).Get()) != 0) {
        Fail(errno, path);
    }
}

void MakeDirectory(const fs::path& path) {
    const fs::path parent = fs::absolute(path).parent_path();
    if (!fs::is_directory(path)) {
        MakeDirectory(parent);
        fs::create_directory(path);
        Sync(parent);
    }
}

void MoveInto(const fs::path& file, const fs::path& directory, const std::string& part, unsigned& next) {
    MakeDirectory(directory);
    fs::path source = file;
    fs::path target = directory / file.filename();
    int error = RenameToNew(source, target);
    if (error == EXDEV) {
        source = directory / part;
        fs::copy_file(file, source, fs::copy_options::overwrite_existing);
        Sync(source);
        error = RenameToNew(source, target);
    }
    for (next = std::max(next, 2U); error == EEXIST; ++next) {
        target = directory / (file.stem().string() + '~' + std::to_string(next) + file.extension().string());
        error = RenameToNew(source, target);
    }
    if (error != 0) {
        Fail(error, target);
    }
    Sync(directory);
}
