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
    static constexpr std::uint32_t ALARM = 0;
    static constexpr std::uint32_t EVENT = 1;
    static constexpr std::uint32_t SNAPSHOT = 2;
    static constexpr std::uint32_t DELIVERY = 3;
    static constexpr std::uint32_t RESTART = 4;

    EString m_Log;
    std::uint32_t m_nAction = 0;
    std::vector<EONEVENTSTRUCT> m_Events;
};

// The files of queued requests that the module writes on a warm restart: their number, then each as log file name,
// action, number of records, records.
namespace SavedRequests {

// The number of requests that the file says it holds; nothing when it cannot be read.
std::optional<std::uint32_t> Count(const std::filesystem::path& file);

// Hands over every request, as far as the file can be read, and how many bytes stand before it. False when there are
// fewer requests than the file says it holds.
bool ForEach(const std::filesystem::path& file,
             const std::function<void(SavedRequest& request, std::uint64_t offset)>& take);

// Writes the requests of `from` that stand before the last usable one to `to`, and gives that one as `last`. The module
// wakes its worker only for requests that are reported: the last one is to be reported, and the others go before it.
// Those behind it are of no use to anybody. A damaged file stays damaged, behind the requests that can be read, for the
// module to report it. False when a file cannot be read or written.
bool SplitLast(const std::filesystem::path& from, const std::filesystem::path& to,
               const std::function<bool(const SavedRequest&)>& isUsable, std::optional<SavedRequest>& last);

} // namespace SavedRequests
