#pragma once

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

// Runs a program, with its arguments, and waits for its end. No shell sees them. It gets the file as its standard input;
// its output is thrown away. Past the time it is killed, with all that it has started. When `stop` (a file descriptor)
// becomes readable it is asked to end, and killed a second later.
//
// Throws std::exception unless the exit status is 0, with the last line on its stderr where there is one; always after a
// stop.
void RunProgram(const std::vector<std::string>& command, const std::filesystem::path& input,
                std::chrono::milliseconds time, int stop);
