#include "gateway/WorkDirectory.h"

#include <cerrno>
#include <stdexcept>
#include <system_error>

#include <sys/file.h>

WorkDirectory::WorkDirectory(const std::filesystem::path& configuration)
    : m_Path(std::filesystem::absolute(configuration) / NAME), m_Lock(opendir(configuration.c_str()), &closedir) {
    if (m_Lock == nullptr || flock(dirfd(m_Lock.get()), LOCK_EX | LOCK_NB) != 0) {
        const std::error_code error(errno, std::generic_category());
        const bool isTaken = error == std::errc::operation_would_block;
        throw std::runtime_error(configuration.string() + ": " +
                                 (isTaken ? "another kvgateway runs with this configuration" : error.message()));
    }
    std::filesystem::remove_all(m_Path); // of a run that was killed
    std::filesystem::create_directory(m_Path);
}

WorkDirectory::~WorkDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(m_Path, ignored);
}
