#pragma once

#include <filesystem>
#include <string>
#include <string_view>

// File operations whose result is still there after a power failure. All throw std::system_error with the file's name.

// An open file, closed at the end.
class EOpenFile {
public:
    // `flags` and `mode` as open(2) takes them; the file is not inherited by other programs.
    EOpenFile(const std::filesystem::path& path, int flags, unsigned mode = 0600);
    EOpenFile(const EOpenFile&) = delete;
    EOpenFile& operator=(const EOpenFile&) = delete;
    ~EOpenFile();

    int Get() const { return m_nFile; }

private:
    int m_nFile;
};

// What was written to the file, or changed in the directory, reaches the disk.
void SyncPath(const std::filesystem::path& path);

// Writes a new file, readable by its owner only, under a temporary name first: it is there whole or not at all.
void WriteWholly(const std::filesystem::path& path, std::string_view bytes);

// Makes `to` a second name of the file, or a copy of it where that is not possible. `to` must not exist.
void LinkOrCopy(const std::filesystem::path& from, const std::filesystem::path& to);

// Copies the file, whose path is absolute, into the directory, which is made when it is missing, in place of an older file
// of that name: one of the two is there at any moment.
void CopyInto(const std::filesystem::path& from, const std::filesystem::path& directory, const std::string& name);
