#pragma once

#include "gateway/Platform.h"

// The gateway's hold on its configuration directory: one gateway at a time, with a directory of its own inside, where the
// module writes down what waits in its queue whenever it is asked. What is found there after a kill has been, or is
// being, written to the log files: only what a clean stop has moved out of it may be taken up again.
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
