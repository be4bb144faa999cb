#include "gateway/SavedRequests.h"

#include "base/EFileIO.h"
#include "base/LittleEndian.h"
#include "gateway/Text.h"

#include <algorithm>
#include <stdexcept>

namespace {

bool GetNumber(EFileIO& file, std::uint32_t& number) {
    unsigned char bytes[4];
    unsigned long read = 0;
    if (!file.IsOpen() || file.ReadFrmFile(bytes, sizeof bytes, read) == 0 || read != sizeof bytes) {
        return false;
    }
    number = GetU32(bytes);
    return true;
}

bool GetRequest(EFileIO& file, SavedRequest& request) {
    std::uint32_t count = 0;
    if (request.m_Log.Restore(&file) == 0 || !GetNumber(file, request.m_nAction) || !GetNumber(file, count) ||
        count > file.GetBytesLeft() / EONEVENTSTRUCT::SAVED_SIZE_MIN) {
        return false;
    }
    request.m_Events.resize(count);
    return std::all_of(request.m_Events.begin(), request.m_Events.end(),
                       [&](EONEVENTSTRUCT& event) { return event.Restore(&file) != 0; });
}

} // namespace

std::optional<std::uint32_t> SavedRequests::Count(const std::filesystem::path& path) {
    EFileIO file(Widen(path.string()), EFileIO::OPEN_FOR_READING);
    std::uint32_t count = 0;
    return GetNumber(file, count) ? std::optional(count) : std::nullopt;
}

std::vector<SavedRequest> SavedRequests::Read(const std::filesystem::path& path, bool& whole) {
    EFileIO file(Widen(path.string()), EFileIO::OPEN_FOR_READING);
    file.Buffer();
    const std::uint64_t size = file.IsOpen() ? file.GetBytesLeft() : 0;
    std::vector<SavedRequest> requests;
    std::uint32_t count = 0;
    for (whole = GetNumber(file, count); whole && requests.size() < count;) {
        requests.emplace_back().m_nOffset = size - file.GetBytesLeft();
        whole = GetRequest(file, requests.back());
    }
    requests.resize(requests.size() - (whole || requests.empty() ? 0 : 1));
    return requests;
}

std::optional<SavedRequest> SavedRequests::SplitLast(const std::filesystem::path& from, const std::filesystem::path& to,
                                                     const std::function<bool(const SavedRequest&)>& isUsable) {
    std::filesystem::copy_file(from, to);
    bool whole = false;
    std::vector<SavedRequest> requests = Read(to, whole);
    const auto last = std::find_if(requests.rbegin(), requests.rend(), isUsable);
    if (last == requests.rend()) {
        return std::nullopt;
    }
    std::filesystem::resize_file(to, last->m_nOffset);
    EFileIO file(Widen(to.string()), EFileIO::OPEN_FOR_WRITING);
    unsigned char before[4];
    unsigned long written = 0;
    PutU32(before, static_cast<std::uint32_t>(requests.rend() - last - 1));
    // In a damaged file more requests are announced than are there, as before.
    if (whole && (!file.IsOpen() || file.WriteToFile(before, sizeof before, written) == 0)) {
        throw std::runtime_error(to.string() + " cannot be written, and is needed to take up saved requests");
    }
    return std::move(*last);
}
