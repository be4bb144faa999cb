#pragma once

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

// Runs a program, with its arguments, until it ends; no shell sees them. It reads the file as its standard input. Past the
// time it is killed, with all that it has started; when `stop`, a file descriptor, becomes readable, it is asked to end
// and killed a second later. Throws std::exception with the last line of its stderr unless its exit status is 0, and after
// a stop in any case.
void RunProgram(const std::vector<std::string>& command, const std::filesystem::path& input,
                std::chrono::milliseconds time, int stop);
