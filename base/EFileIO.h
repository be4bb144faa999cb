#pragma once

#include "base/Export.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

enum FilePositionStart { FILE_POSITION_BEGIN = 0, FILE_POSITION_CURRENT = 1, FILE_POSITION_END = 2 };

// An open file, and operations on files by name. The one place that knows the system's file calls: interrupted calls are
// repeated, short ones continued, and nothing above it looks at errno.
//
// Names are wide text; on disk they are UTF-8 whatever the locale. A name without a UTF-8 form (a lone surrogate, a
// value above U+10FFFF) or longer than the system's limit fails like a missing file. All operations answer non-zero for
// success. One object belongs to one thread at a time; the static operations may be called from any thread.
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

    // The current size in bytes; 0xFFFFFFFF for that size and every larger one, 0 when it cannot be told. The answer is
    // remembered for PositionFile and WriteToFile, so that appending costs no second question.
    std::uint32_t GetFileSize();

    // Whether the last answer of GetFileSize was the system's: false when the size could not be told.
    bool IsSizeKnown() const { return m_nSize >= 0; }

    // Moves the position; the file itself is not touched. From the end, the size is the one that GetFileSize last
    // answered, moved on by the writes since; when that cannot be told the position stays, and the result is failure.
    int PositionFile(long offset, FilePositionStart origin);

    // All or nothing: when not every byte can be written the file gets its old length back, `written` is 0 and the
    // result is failure. (Bytes that a failed write has already replaced inside the file stay replaced.)
    int WriteToFile(const void* data, unsigned long length, unsigned long& written);

    // From here on many small operations become few system calls, of BUFFER_SIZE bytes. For a file that is only written,
    // or only read, from one end to the other. What was written and not flushed is lost with the object; a failed write
    // leaves what it has written. Throws std::bad_alloc, as buffered writing does.
    static constexpr std::size_t BUFFER_SIZE = 1U << 16U;
    void Buffer() { m_bBuffered = true; }
    int Flush();

    // Reads up to `length` bytes; fewer only at the end of the file, which is still a success.
    int ReadFrmFile(void* data, unsigned long length, unsigned long& read);

    // One number, little-endian.
    int WriteNumber(std::uint32_t number);
    int ReadNumber(std::uint32_t& number);

    // Bytes between the position and the end of the file: the most that a stored count can honestly ask for.
    std::uint64_t GetBytesLeft();

    static int DeleteFile(const wchar_t* name, bool moveToTrash); // there is no trash: the flag changes nothing
    // Replaces an existing target, which is there until then. On another file system that takes a copy beside the target,
    // ".part-" and a number.
    static int RenameFile(const wchar_t* from, const wchar_t* to);
    static int SetFileSize(const wchar_t* name, long size);      // a missing file fails and is not created
    static int Exists(const wchar_t* path, unsigned long* mode); // `mode`, unless null, gets stat(2)'s st_mode
    static int CreateDir(const wchar_t* path);                   // an existing directory is a failure
    static int CreateRecursiveDir(const wchar_t* path);          // an existing directory is a success
    static int RemoveDir(const wchar_t* path);                   // only an empty directory is removed

    // Whether there is nothing of that name, not even a link that leads nowhere.
    static bool IsMissing(const wchar_t* path);
    // Why this thread's last operation failed, such as "Permission denied". Asked right after it.
    static std::string LastError();

    // Is told of every file that cannot be opened for writing or that a write fails on, on the thread that tried: its
    // name as it is on disk, and errno. Set while nobody writes.
    using FailureHook = void (*)(const char* name, int error);
    static void SetFailureHook(FailureHook hook); // null, the default: nobody listens

    // From here on DeleteFile fails and leaves every file, or works again.
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
    std::int64_t m_nSize = -1; // as last told by the system and moved on by our writes; -1: not asked yet

    bool m_bBuffered = false;
    std::vector<unsigned char> m_Buffer; // written and not flushed yet, or read ahead
    std::size_t m_nTaken = 0;            // of what was read ahead
};
