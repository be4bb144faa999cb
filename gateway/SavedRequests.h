#pragma once

#include "base/EONEVENTSTRUCT.h"
#include "base/EString.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <vector>

// One request of a file of saved requests.
struct SavedRequest {
    EString m_Log;
    std::uint32_t m_nAction = 0; // an index of ACTIONS
    std::vector<EONEVENTSTRUCT> m_Events;
};

// The files of queued requests that the module writes on a warm restart: their number, then each as log file name,
// action, number of records, records.
namespace SavedRequests {

// The number of requests that the file says it holds; nothing when it cannot be read.
std::optional<std::uint32_t> Count(const std::filesystem::path& file);

// The requests, as far as the file can be read; `whole`: there are as many as it says.
std::vector<SavedRequest> Read(const std::filesystem::path& file, bool& whole);

} // namespace SavedRequests
