#pragma once

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

#include <unistd.h>

// What the gateway asks of the system. Everything throws std::exception when it cannot be done.

class OpenFile {
public:
    OpenFile(int file, const std::filesystem::path& what); // of which open(2), or its like, has answered `file`
    OpenFile(const OpenFile&) = delete;
    OpenFile& operator=(const OpenFile&) = delete;
    ~OpenFile() { close(m_nFile); }

    int Get() const { return m_nFile; }

private:
    int m_nFile;
};

// fsync(2) of a file or directory.
void Sync(const std::filesystem::path& path);

// Copies the file into the directory, which is made if need be, and syncs both. It replaces none there: a second "a-0.csv"
// becomes "a-0~2.csv". `next` is the first number to try, and then the one behind the number that was taken. The copy is
// called `part` until it is complete.
void CopyInto(const std::filesystem::path& file, const std::filesystem::path& directory, const std::string& part,
              unsigned& next);

// Runs a program, with its arguments, until it ends; no shell sees them. It reads the file as its standard input. Past the
// time it is killed, with all that it has started; when `stop`, a file descriptor, becomes readable, it is asked to end
// and killed a second later. Throws, with the last line of its stderr, unless its exit status is 0; always after a stop.
void RunProgram(const std::vector<std::string>& command, const std::filesystem::path& input,
                std::chrono::milliseconds time, int stop);
