#pragma once

#include <filesystem>

// Writes a starting configuration, with comments, into a directory, which is made when it is missing; the exit status.
// Files that are there already are left alone, and nothing is written then.
int Init(const std::filesystem::path& directory);
