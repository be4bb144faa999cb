#include "gateway/WorkDirectory.h"

#include <fcntl.h>
#include <stdexcept>
#include <sys/file.h>

WorkDirectory::WorkDirectory(const std::filesystem::path& configuration)
    : m_Lock(open(configuration.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC), configuration),
      m_Path(std::filesystem::absolute(configuration) / NAME) {
    if (flock(m_Lock.Get(), LOCK_EX | LOCK_NB) != 0) {
        throw std::runtime_error(configuration.string() + ": another kvgateway runs with this configuration");
    }
    std::filesystem::remove_all(m_Path); // of a run that was killed
    std::filesystem::create_directory(m_Path);
}

WorkDirectory::~WorkDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(m_Path, ignored);
}
