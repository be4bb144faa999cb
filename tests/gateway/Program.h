#pragma once

#include "tests/TempDir.h"

#include <csignal>
#include <cstdio>
#include <string>
#include <unistd.h>
#include <vector>

// An element of fileSpecs, in "logs".
struct Spec {
    std::string m_Name;
    std::string m_FileName;
    int m_nFileFormat = 1;
    int m_nUnicode = 0;
    int m_nDeliveryMode = 1;
    int m_nMaxFileSize = 100'000;
    int m_nNumFiles = 2;
};

std::vector<std::string> Lines(const std::string& text); // a last one without an end is marked

// A directory with a configuration in "config", in which kvgateway runs.
class Place {
public:
    // `gateway`: gateway.json, empty for none.
    explicit Place(const std::vector<Spec>& specs, const std::string& gateway = "");

    std::string Path(const std::string& name = "") const { return m_Directory.Path(name); }
    std::string Read(const std::string& name) const { return ReadWhole(Path(name)); }
    void Write(const std::string& name, const std::string& bytes) const { WriteWhole(Path(name), bytes); }
    bool Has(const std::string& name) const { return std::filesystem::exists(Path(name)); }

    // The rows of the set "PREFIX<index>SUFFIX", from the oldest file to the newest, without lines equal to `header`.
    std::vector<std::string> Rows(const std::string& prefix, const std::string& suffix,
                                  const std::string& header = "") const;

private:
    TempDir m_Directory;
};

// kvgateway as a child process, killed in the end if it still runs.
class Program {
public:
    // `arguments` behind the program's name. Its standard input is a pipe, its output and errors go to files.
    Program(const Place& place, const std::vector<std::string>& arguments);
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;
    ~Program();

    // "run" with the place's configuration and working directory.
    static Program Run(const Place& place, const std::vector<std::string>& more = {});

    bool Write(const std::string& text); // as much as the program takes, false when it takes no more
    void Signal(int number) const;
    int Wait(); // ends the input; the exit status, or -signal
    std::string Errors() const { return ReadWhole(m_Files + ".err"); }
    std::string Output() const { return ReadWhole(m_Files + ".out"); }

private:
    std::string m_Files;
    std::FILE* m_pInput;
};

// Waits up to ten seconds until the condition holds.
template <class Condition>
bool Eventually(Condition condition) {
    for (int i = 0; i < 1000; ++i) {
        if (condition()) {
            return true;
        }
        usleep(10'000);
    }
    return false;
}
