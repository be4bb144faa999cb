#pragma once

#include <filesystem>
#include <string>

// Operations on files whose result is still there after a loss of power. They throw std::system_error with the file's name.

class OpenFile {
public:
    OpenFile(int file, const std::filesystem::path& what); // of which open(2), or its like, has answered `file`
    OpenFile(const OpenFile&) = delete;
    OpenFile& operator=(const OpenFile&) = delete;
    ~OpenFile();

    int Get() const { return m_nFile; }

private:
    int m_nFile;
};

// What was written to the file, or changed in the directory, reaches the disk.
void Sync(const std::filesystem::path& path);

void MakeDirectory(const std::filesystem::path& path); // and those above it, as far as they are missing

// Moves the file into the directory, which is made when it is missing, and replaces none there: "a-0.csv" becomes
// "a-0~2.csv" and so on, with `next` as the first number to try, which is left behind the one that was taken. On its way
// to another file system the file is called `part`. It is in one of the two places at any moment.
void MoveInto(const std::filesystem::path& file, const std::filesystem::path& directory, const std::string& part,
              unsigned& next);
