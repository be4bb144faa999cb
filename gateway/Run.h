#pragma once

#include <filesystem>
#include <string>

// Exit statuses of the program.
constexpr int EXIT_OK = 0;
constexpr int EXIT_SOME_FAILED = 1; // lines that could not be used, rows not written, a configuration with errors
constexpr int EXIT_REFUSED = 2;     // the command could not be carried out

struct RunOptions {
    std::filesystem::path m_Configuration; // directory
    std::filesystem::path m_Module;        // the shared object
    std::string m_Input = "-";             // a file, or "-" for standard input
    std::filesystem::path m_Directory;     // the working directory to go to; empty: stay
    bool m_bReportLive = false;            // without flow control
};

// Both change to the working directory, print what is wrong with the configuration on stderr and return the exit status.
// They throw std::exception with a text for the operator.
int Check(const RunOptions& options); // describes the log files on stdout
int Run(const RunOptions& options);   // runs the module on the input, to its end or until a signal
