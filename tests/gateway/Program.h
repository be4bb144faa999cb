#pragma once

#include "tests/Workplace.h"

#include <csignal>
#include <cstdio>
#include <string>
#include <unistd.h>
#include <vector>

std::vector<std::string> Lines(const std::string& text); // a last one without an end is marked

// The lines of a file beside this one, split at " => ". Empty ones and comments are left out.
std::vector<std::vector<std::string>> Table(const std::string& name);

// A new working directory with a configuration in "config".
class Place : public Workplace {
public:
    // `gateway`: gateway.json, empty for none.
    explicit Place(const std::vector<SpecItems>& specs, const std::string& gateway = "");
};

// The rows of the set "PREFIX<index>SUFFIX", from the oldest file to the newest, without lines equal to `header`.
std::vector<std::string> Rows(const std::string& prefix, const std::string& suffix, const std::string& header = "");

// A command of the shell's as a child process, killed in the end if it still runs.
class Program {
public:
    // Its standard input is a pipe, its output and errors go to files in the working directory.
    explicit Program(const std::string& command);
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;
    ~Program();

    static Program Gateway(const std::string& arguments);
    static Program Run(const std::string& more = "") { return Gateway("run --config config " + more); }

    bool Write(const std::string& text); // as much as the program takes, false when it takes no more
    void Signal(int number) const;
    int Wait(); // ends the input; the exit status, or -signal
    std::string Errors() const { return ReadWhole(m_Files + ".err"); }
    std::string Output() const { return ReadWhole(m_Files + ".out"); }

private:
    std::string m_Files;
    std::FILE* m_pInput;
};

// Waits up to a minute until the condition holds.
template <class Condition>
bool Eventually(Condition condition) {
    for (int i = 0; i < 6000; ++i) {
        if (condition()) {
            return true;
        }
        usleep(10'000);
    }
    return false;
}
