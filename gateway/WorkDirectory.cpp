#include "gateway/WorkDirectory.h"

#include <cerrno>
#include <cstring>
#include <stdexcept>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

WorkDirectory::WorkDirectory(const std::filesystem::path& configuration)
    : m_Path(std::filesystem::absolute(configuration) / "kvgateway.work"),
      m_nLock(open(configuration.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
    if (m_nLock < 0 || flock(m_nLock, LOCK_EX | LOCK_NB) != 0) {
        const int error = errno;
        close(m_nLock);
        throw std::runtime_error(
            configuration.string() + ": " +
            (error == EWOULDBLOCK ? "another kvgateway runs with this configuration" : std::strerror(error)));
    }
    std::error_code error;
    std::filesystem::remove_all(m_Path, error); // of a run that was killed
    std::filesystem::create_directory(m_Path, error);
    if (error) {
        close(m_nLock);
        throw std::runtime_error(m_Path.string() +
                                 " cannot be made, and is needed to save requests: " + error.message());
    }
}

WorkDirectory::~WorkDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(m_Path, ignored);
    close(m_nLock); // gives the lock back
}
