#pragma once

#include "base/Export.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

enum FilePositionStart { FILE_POSITION_BEGIN = 0, FILE_POSITION_END = 2 };

// An open file, and operations on files by name. Interrupted system calls are repeated and short ones continued here;
// callers do not look at errno.
//
// Names are wide text; on disk they are UTF-8 whatever the locale. An operation fails for a name that has no UTF-8 form
// (a lone surrogate, a value above U+10FFFF) or is too long for the system. Operations return non-zero for success. One
// object belongs to one thread at a time; the static operations may be called from any thread.
class KVBASE_API EFileIO {
public:
    static constexpr unsigned long MODE_READ = 0x02;
    static constexpr unsigned long MODE_WRITE = 0x04;
    static constexpr unsigned long MODE_EXISTING = 0x08; // the file must exist
    static constexpr unsigned long MODE_CREATE = 0x10;   // a missing file is created, an existing one is not cut

    static constexpr unsigned long OPEN_FOR_READING = MODE_READ | MODE_EXISTING; // 10
    static constexpr unsigned long OPEN_FOR_WRITING = MODE_WRITE | MODE_CREATE;  // 20

    EFileIO(const wchar_t* name, unsigned long mode);
    EFileIO(const EFileIO&) = delete;
    EFileIO& operator=(const EFileIO&) = delete;
    ~EFileIO();

    bool IsOpen() const { return m_nFile >= 0; }

    // The current size in bytes, at most 0xFFFFFFFF; 0 when the system does not tell. PositionFile and WriteToFile use
    // this size, so that appending needs no second system call.
    std::uint32_t GetFileSize();

    // False when the last GetFileSize failed.
    bool IsSizeKnown() const { return m_nSize >= 0; }

    // Moves the position; the file itself is not touched. The end is where GetFileSize last found it, or where later
    // writes have moved it. When the size is not known this fails, and the position stays.
    int PositionFile(long offset, FilePositionStart origin);

    // All or nothing: when not every byte can be written the file gets its old length back, `written` is 0 and the
    // result is failure. (Bytes that were overwritten before the failure stay overwritten.)
    int WriteToFile(const void* data, unsigned long length, unsigned long& written);

    // Buffers what is read or written from here on, BUFFER_SIZE bytes at a time. For a file that is only read, or only
    // written, from start to end. The destructor does not flush, and a failed write is not undone. Buffered operations
    // throw std::bad_alloc.
    static constexpr std::size_t BUFFER_SIZE = 1U << 16U;
    void Buffer() { m_bBuffered = true; }
    int Flush();

    // Reads up to `length` bytes; fewer only at the end of the file, which is still a success.
    int ReadFrmFile(void* data, unsigned long length, unsigned long& read);

    // One number, little-endian.
    int WriteNumber(std::uint32_t number);
    int ReadNumber(std::uint32_t& number);

    // Bytes between the position and the end of the file. A stored length beyond it is damaged.
    std::uint64_t GetBytesLeft();

    static int DeleteFile(const wchar_t* name, bool moveToTrash = false); // there is no trash
    // Replaces an existing target in one step. A move to another file system first makes a copy beside the target,
    // named ".part-" and a number.
    static int RenameFile(const wchar_t* from, const wchar_t* to);
    static int SetFileSize(const wchar_t* name, long size);      // a missing file fails and is not created
    static int Exists(const wchar_t* path, unsigned long* mode); // `mode`, unless null, gets stat(2)'s st_mode
    static int CreateDir(const wchar_t* path);                   // an existing directory is a failure
    static int CreateRecursiveDir(const wchar_t* path);          // an existing directory is a success
    static int RemoveDir(const wchar_t* path);                   // only an empty directory is removed

    // Whether nothing has that name, not even a dangling link.
    static bool IsMissing(const wchar_t* path);
    // Why this thread's last operation failed, such as "Permission denied". Call it right after the failure.
    static std::string LastError();

    // Called when a file cannot be opened for writing or a write fails, on the thread that tried, with the file's name
    // in UTF-8 and errno. Set it while nobody writes.
    using FailureHook = void (*)(const char* name, int error);
    static void SetFailureHook(FailureHook hook); // null, the default: nobody listens

    // While set to false, DeleteFile fails and leaves every file.
    static void SetDeleting(bool works);

    // Turns '\' into the platform's '/', in place.
    static void ConvertPathString(wchar_t* path);

private:
    std::int64_t Size();
    int Collect(const unsigned char* bytes, std::size_t length);
    int WriteNow(const void* data, unsigned long length);
    long ReadSome(void* data, std::size_t length);

    int m_nFile = -1;
    std::int64_t m_nPosition = 0;
    std::int64_t m_nSize = -1; // as the system last told, and later writes changed it; -1: not known

    bool m_bBuffered = false;
    std::vector<unsigned char> m_Buffer; // written and not flushed yet, or read ahead
    std::size_t m_nTaken = 0;            // how much of what was read ahead
};
