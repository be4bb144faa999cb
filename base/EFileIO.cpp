#include "base/EFileIO.h"

#include "base/EString.h"
#include "base/LittleEndian.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cwchar>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <string>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utf8/checked.h>

namespace {

constexpr mode_t FILE_MODE = 0666; // less the process's umask
constexpr mode_t DIRECTORY_MODE = 0777;

// Repeats a system call that a signal interrupted.
template <class Call>
auto Uninterrupted(Call call) {
    auto result = call();
    while (result < 0 && errno == EINTR) {
        result = call();
    }
    return result;
}

// A file name in UTF-8. Empty, which no system call finds, when the text has no UTF-8 form.
class Name {
public:
    explicit Name(const wchar_t* text) {
        text = OrEmpty(text);
        std::size_t length = 0;
        // Most names are ASCII, which is copied faster; every row opens its file by name.
        for (; text[length] > 0 && text[length] < 0x80 && length < PATH_MAX; ++length) {
            m_Bytes[length] = static_cast<char>(text[length]);
        }
        char* out = m_Bytes + length;
        try {
            for (text += length; *text != L'\0' && out < m_Bytes + PATH_MAX; ++text) {
                out = utf8::append(static_cast<char32_t>(*text), out);
            }
        } catch (const utf8::exception&) {
            out = m_Bytes;
        }
        *out = '\0';
    }

    operator const char*() const { return m_Bytes; }

private:
    char m_Bytes[PATH_MAX + 4]; // on the stack: naming a file allocates nothing; PATH_MAX bytes are too long already
};

// Flushes the file, or the directory, to the disk.
bool Sync(const std::filesystem::path& path) {
    const int file = Uninterrupted([&] { return open(path.c_str(), O_RDONLY | O_CLOEXEC); });
    const bool done = file >= 0 && Uninterrupted([&] { return fsync(file); }) == 0;
    if (file >= 0) {
        close(file);
    }
    return done;
}

// Copies, then renames, then deletes. At any moment the target is the old file or the whole new one, and the source
// stays until the new one is on the disk, so that a power failure loses no rows.
bool MoveAcross(const char* source, const char* target) {
    namespace fs = std::filesystem;
    const fs::path directory = fs::path(target).parent_path();
    // A name of its own: the target's may already be as long as the file system allows.
    const fs::path part = directory / (".part-" + std::to_string(std::hash<std::string>()(target)));
    std::error_code error;
    std::error_code ignored;
    if (!fs::copy_file(source, part, fs::copy_options::overwrite_existing, error) || !Sync(part)) {
        fs::remove(part, ignored);
        return false;
    }
    fs::rename(part, target, error);
    if (error) {
        fs::remove(part, ignored);
        return false;
    }
    (void)Sync(directory.empty() ? "." : directory); // some file systems cannot
    fs::remove(source, ignored);
    return true;
}

std::atomic<EFileIO::FailureHook> g_Hook = nullptr;
std::atomic<bool> g_bDeleting = true;

void TellFailure(const char* name, int error) {
    if (const EFileIO::FailureHook hook = g_Hook) {
        hook(name, error);
    }
}

// Looks up the name of the open file, which is not stored.
void TellFailure(int file, int error) {
    char link[32];
    char name[PATH_MAX];
    std::snprintf(link, sizeof link, "/proc/self/fd/%d", file);
    const ssize_t length = readlink(link, name, sizeof name - 1);
    name[std::max<ssize_t>(length, 0)] = '\0';
    TellFailure(name, error);
}

int OpenFlags(unsigned long mode) {
    const bool reads = (mode & EFileIO::MODE_READ) != 0;
    const bool writes = (mode & EFileIO::MODE_WRITE) != 0;
    const int access = reads && writes ? O_RDWR : writes ? O_WRONLY : O_RDONLY;
    return access | O_CLOEXEC | O_NOCTTY | ((mode & EFileIO::MODE_CREATE) != 0 ? O_CREAT : 0);
}

} // namespace

EFileIO::EFileIO(const wchar_t* name, unsigned long mode) {
    const Name path(name);
    m_nFile = Uninterrupted([&] { return open(path, OpenFlags(mode), FILE_MODE); });
    if (m_nFile < 0 && (mode & MODE_WRITE) != 0) {
        TellFailure(path, errno);
    }
}

EFileIO::~EFileIO() {
    if (m_nFile >= 0) {
        close(m_nFile); // not repeated: Linux closes the file even when a signal interrupts the call (close(2))
    }
}

std::int64_t EFileIO::Size() {
    if (m_nSize < 0) {
        GetFileSize();
    }
    return std::max<std::int64_t>(m_nSize, 0);
}

std::uint32_t EFileIO::GetFileSize() {
    struct stat status {};
    m_nSize = Uninterrupted([&] { return fstat(m_nFile, &status); }) == 0 ? status.st_size : -1;
    return static_cast<std::uint32_t>(std::clamp<std::int64_t>(m_nSize, 0, UINT32_MAX));
}

int EFileIO::PositionFile(long offset, FilePositionStart origin) {
    const std::int64_t base = origin == FILE_POSITION_END ? Size() : 0;
    if (base + offset < 0 || (origin == FILE_POSITION_END && !IsSizeKnown())) {
        return 0; // at position 0 the next write would overwrite the file
    }
    m_nPosition = base + offset;
    return 1;
}

int EFileIO::WriteToFile(const void* data, unsigned long length, unsigned long& written) {
    const int done = m_bBuffered ? Collect(static_cast<const unsigned char*>(data), length) : WriteNow(data, length);
    written = done != 0 ? length : 0;
    return done;
}

int EFileIO::Collect(const unsigned char* bytes, std::size_t length) {
    m_Buffer.reserve(BUFFER_SIZE);
    for (std::size_t some = 0; length > 0; bytes += some, length -= some) {
        some = std::min(length, BUFFER_SIZE - m_Buffer.size());
        m_Buffer.insert(m_Buffer.end(), bytes, bytes + some);
        if (m_Buffer.size() == BUFFER_SIZE && Flush() == 0) {
            return 0;
        }
    }
    return 1;
}

// All or nothing, unless it is buffered.
int EFileIO::WriteNow(const void* data, unsigned long length) {
    const std::int64_t before = Size();
    if (!IsSizeKnown()) {
        return 0; // a failed write could not be undone
    }
    const auto* bytes = static_cast<const unsigned char*>(data);
    unsigned long done = 0;
    while (done < length) {
        const ssize_t count = Uninterrupted(
            [&] { return pwrite(m_nFile, bytes + done, length - done, m_nPosition + static_cast<off_t>(done)); });
        if (count <= 0) {
            const int error = count < 0 ? errno : ENOSPC; // nothing written, without an error
            if (done > 0 && !m_bBuffered) {
                (void)Uninterrupted([&] { return ftruncate(m_nFile, before); });
            }
            TellFailure(m_nFile, error);
            return 0;
        }
        done += static_cast<unsigned long>(count);
    }
    m_nPosition += static_cast<std::int64_t>(length);
    m_nSize = std::max(m_nSize, m_nPosition);
    return 1;
}

int EFileIO::Flush() {
    const int written = WriteNow(m_Buffer.data(), m_Buffer.size());
    m_Buffer.clear();
    return written;
}

// Like read(2), but leaves the position to the caller.
long EFileIO::ReadSome(void* data, std::size_t length) {
    const auto readNow = [this](void* room, std::size_t size) {
        return Uninterrupted([&] { return pread(m_nFile, room, size, m_nPosition); });
    };
    if (!m_bBuffered) {
        return readNow(data, length);
    }
    if (m_nTaken == m_Buffer.size()) {
        m_Buffer.resize(static_cast<std::size_t>(std::min<std::uint64_t>(GetBytesLeft(), BUFFER_SIZE)));
        const long count = readNow(m_Buffer.data(), m_Buffer.size());
        m_Buffer.resize(static_cast<std::size_t>(std::max(count, 0L)));
        m_nTaken = 0;
        if (count < 0) {
            return count;
        }
    }
    length = std::min(length, m_Buffer.size() - m_nTaken);
    std::copy_n(m_Buffer.data() + m_nTaken, length, static_cast<unsigned char*>(data));
    m_nTaken += length;
    return static_cast<long>(length);
}

int EFileIO::ReadFrmFile(void* data, unsigned long length, unsigned long& read) {
    read = 0;
    auto* bytes = static_cast<unsigned char*>(data);
    while (read < length) {
        const long count = ReadSome(bytes + read, length - read);
        if (count < 0) {
            return 0;
        }
        if (count == 0) {
            break;
        }
        read += static_cast<unsigned long>(count);
        m_nPosition += count;
    }
    return 1;
}

int EFileIO::WriteNumber(std::uint32_t number) {
    unsigned long written = 0;
    return WriteToFile(&number, sizeof number, written);
}

int EFileIO::ReadNumber(std::uint32_t& number) {
    unsigned long read = 0;
    return ReadFrmFile(&number, sizeof number, read) != 0 && read == sizeof number ? 1 : 0;
}

std::uint64_t EFileIO::GetBytesLeft() {
    return static_cast<std::uint64_t>(std::max<std::int64_t>(Size() - m_nPosition, 0));
}

int EFileIO::DeleteFile(const wchar_t* name, bool /*moveToTrash*/) {
    const Name path(name);
    return g_bDeleting && Uninterrupted([&] { return unlink(path); }) == 0 ? 1 : 0;
}

int EFileIO::RenameFile(const wchar_t* from, const wchar_t* to) {
    const Name source(from);
    const Name target(to);
    if (Uninterrupted([&] { return rename(source, target); }) == 0) {
        return 1;
    }
    return errno == EXDEV && MoveAcross(source, target) ? 1 : 0;
}

int EFileIO::SetFileSize(const wchar_t* name, long size) {
    const Name path(name);
    return Uninterrupted([&] { return truncate(path, size); }) == 0 ? 1 : 0;
}

int EFileIO::Exists(const wchar_t* path, unsigned long* mode) {
    const Name name(path);
    struct stat status {};
    if (Uninterrupted([&] { return stat(name, &status); }) != 0) {
        return 0;
    }
    if (mode != nullptr) {
        *mode = status.st_mode;
    }
    return 1;
}

bool EFileIO::IsMissing(const wchar_t* path) {
    const Name name(path);
    struct stat status {};
    return Uninterrupted([&] { return lstat(name, &status); }) != 0 && (errno == ENOENT || errno == ENOTDIR);
}

std::string EFileIO::LastError() {
    return std::generic_category().message(errno);
}

int EFileIO::CreateDir(const wchar_t* path) {
    const Name name(path);
    return Uninterrupted([&] { return mkdir(name, DIRECTORY_MODE); }) == 0 ? 1 : 0;
}

int EFileIO::CreateRecursiveDir(const wchar_t* path) {
    const std::filesystem::path name(static_cast<const char*>(Name(path)));
    std::error_code error;
    do {
        std::filesystem::create_directories(name, error);
    } while (error == std::errc::interrupted);
    return error ? 0 : 1;
}

int EFileIO::RemoveDir(const wchar_t* path) {
    const Name name(path);
    return Uninterrupted([&] { return rmdir(name); }) == 0 ? 1 : 0;
}

void EFileIO::SetFailureHook(FailureHook hook) {
    g_Hook = hook;
}

void EFileIO::SetDeleting(bool works) {
    g_bDeleting = works;
}

void EFileIO::ConvertPathString(wchar_t* path) {
    for (; path != nullptr && *path != L'\0'; ++path) {
        *path = *path == L'\\' ? L'/' : *path;
    }
}
