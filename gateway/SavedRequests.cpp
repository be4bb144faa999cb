#include "gateway/SavedRequests.h"

#include "base/EFileIO.h"
#include "base/LittleEndian.h"
#include "gateway/Text.h"

#include <fstream>
#include <iterator>
#include <string>

namespace {

bool GetNumber(EFileIO& file, std::uint32_t& number) {
    unsigned char bytes[4];
    unsigned long read = 0;
    if (file.ReadFrmFile(bytes, sizeof bytes, read) == 0 || read != sizeof bytes) {
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
    for (std::uint32_t i = 0; i < count; ++i) {
        if (request.m_Events.emplace_back().Restore(&file) == 0) {
            return false;
        }
    }
    return true;
}

bool ReadBytes(const std::filesystem::path& path, std::string& bytes) {
    std::ifstream file(path, std::ios::binary);
    bytes.assign(std::istreambuf_iterator<char>(file), {});
    return file.good() || file.eof();
}

bool WriteBytes(const std::filesystem::path& path, const std::string& bytes) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    file.close();
    return file.good();
}

} // namespace

std::optional<std::uint32_t> SavedRequests::Count(const std::filesystem::path& path) {
    EFileIO file(Widen(path.string()), EFileIO::OPEN_FOR_READING);
    std::uint32_t count = 0;
    if (!file.IsOpen() || !GetNumber(file, count)) {
        return std::nullopt;
    }
    return count;
}

bool SavedRequests::ForEach(const std::filesystem::path& path,
                            const std::function<void(SavedRequest& request, std::uint64_t offset)>& take) {
    EFileIO file(Widen(path.string()), EFileIO::OPEN_FOR_READING);
    const std::uint64_t size = file.IsOpen() ? file.GetBytesLeft() : 0;
    std::uint32_t count = 0;
    if (!file.IsOpen() || !GetNumber(file, count)) {
        return false;
    }
    for (std::uint32_t i = 0; i < count; ++i) {
        const std::uint64_t offset = size - file.GetBytesLeft();
        SavedRequest request;
        if (!GetRequest(file, request)) {
            return false;
        }
        take(request, offset);
    }
    return true;
}

bool SavedRequests::SplitLast(const std::filesystem::path& from, const std::filesystem::path& to,
                              const std::function<bool(const SavedRequest&)>& isUsable,
                              std::optional<SavedRequest>& last) {
    std::string bytes;
    if (!ReadBytes(from, bytes)) {
        return false;
    }
    std::uint32_t count = 0;
    std::uint32_t before = 0;
    std::size_t end = bytes.size();
    const bool whole = ForEach(from, [&](SavedRequest& request, std::uint64_t offset) {
        if (isUsable(request)) {
            before = count;
            end = static_cast<std::size_t>(offset);
            last = std::move(request);
        }
        ++count;
    });
    bytes.resize(end);
    if (last && whole) { // otherwise more requests are announced than are there, as before
        PutU32(reinterpret_cast<unsigned char*>(bytes.data()), before);
    }
    return WriteBytes(to, bytes);
}
