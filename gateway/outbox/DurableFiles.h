#pragma once

#include <filesystem>
#include <string>

// Operations on files whose result is still there after a loss of power. All throw std::system_error with the file's name.

// An open file, closed at the end.
class OpenFile {
public:
    OpenFile(int file, const std::filesystem::path& what); // throws when the file is below 0
    OpenFile(const OpenFile&) = delete;
    OpenFile& operator=(const OpenFile&) = delete;
    ~OpenFile();

    int Get() const { return m_nFile; }

private:
    int m_nFile;
};

// What was written to the file, or changed in the directory, reaches the disk.
void Sync(const std::filesystem::path& path);

void MakeDirectory(const std::filesystem::path& path); // and those above it; one that is there already is fine

// Moves the file into the directory, which is made when it is missing, and replaces none there: "a-0.csv" becomes
// "a-0~2.csv" and so on. The first number to try is `next`, which is then one more than the one that was taken. To another
// file system it is copied as `part`, which is hidden, first. The file is in one of the two places at any moment.
void MoveInto(const std::filesystem::path& file, const std::filesystem::path& directory, const std::string& part,
              unsigned& next);
