#pragma once

#include "base/EONEVENTSTRUCT.h"
#include "base/EString.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <vector>

// One request of a file of saved requests.
struct SavedRequest {
    EString m_Log;
    std::uint32_t m_nAction = 0; // an index of ACTIONS, unless the file is damaged
    std::vector<EONEVENTSTRUCT> m_Events;
    std::uint64_t m_nOffset = 0; // bytes that stand before it
};

// The files of queued requests that the module writes on a warm restart: their number, then each as log file name,
// action, number of records, records.
namespace SavedRequests {

// The number of requests that the file says it holds; nothing when it cannot be read.
std::optional<std::uint32_t> Count(const std::filesystem::path& file);

// The requests, as far as the file can be read; `whole`: there are as many as it says.
std::vector<SavedRequest> Read(const std::filesystem::path& file, bool& whole);

// Writes the requests of `from` that stand before the last usable one to `to`, a new file, and returns that one. The
// module wakes its worker only for requests that are reported: the last one is to be reported, and the others go before
// it. Those behind it are of no use to anybody. A damaged file stays damaged, behind the requests that can be read, for
// the module to report it. Throws std::runtime_error when a file cannot be read or written.
std::optional<SavedRequest> SplitLast(const std::filesystem::path& from, const std::filesystem::path& to,
                                      const std::function<bool(const SavedRequest&)>& isUsable);

} // namespace SavedRequests
