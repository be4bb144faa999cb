#include "gateway/SavedRequests.h"

#include "base/EFileIO.h"
#include "base/LittleEndian.h"
#include "gateway/Report.h"
#include "gateway/Text.h"

#include <algorithm>

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
    if (request.m_Log.Restore(&file) == 0 || !GetNumber(file, request.m_nAction) ||
        request.m_nAction >= ACTIONS.size() || !GetNumber(file, count) ||
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
    std::vector<SavedRequest> requests;
    std::uint32_t count = 0;
    for (whole = GetNumber(file, count); whole && requests.size() < count;) {
        whole = GetRequest(file, requests.emplace_back());
    }
    requests.resize(requests.size() - (whole || requests.empty() ? 0 : 1));
    return requests;
}
