#pragma once

#include "gateway/Platform.h"

// Locks the configuration directory for one gateway and makes a directory in it, where the module writes its waiting
// requests whenever it is asked. What a kill leaves there is deleted: its requests may be in the log files already.
class WorkDirectory {
public:
    static constexpr const char* NAME = "kvgateway.work";

    explicit WorkDirectory(const std::filesystem::path& configuration); // throws std::exception for the operator
    ~WorkDirectory();                                                   // removes it

    const std::filesystem::path& Path() const { return m_Path; } // absolute

private:
    const OpenFile m_Lock;
    std::filesystem::path m_Path;
};
