#pragma once

#include "base/EUtility.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

// A directory of a test's own, removed with everything in it.
class TempDir {
public:
    TempDir() : m_Path((std::filesystem::temp_directory_path() / "kvtest-XXXXXX").string()) {
        if (mkdtemp(m_Path.data()) == nullptr) {
            throw std::runtime_error("no temporary directory: " + m_Path);
        }
    }
    ~TempDir() {
        std::error_code ignored;
        std::filesystem::remove_all(m_Path, ignored);
    }

    std::string Path() const { return m_Path; }
    std::string Path(const std::string& name) const { return m_Path + '/' + name; }

private:
    std::string m_Path;
};

inline EString Wide(const std::string& text) {
    return Widen(text);
}

inline std::string ReadWhole(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

inline void WriteWhole(const std::string& path, const std::string& bytes) {
    std::ofstream file(path, std::ios::binary);
    file.exceptions(std::ios::badbit | std::ios::failbit);
    file << bytes << std::flush;
}
