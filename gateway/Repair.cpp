#include "gateway/Repair.h"

#include "gateway/Configuration.h"
#include "gateway/Console.h"

#include <algorithm>
#include <array>
#include <fstream>
#include <regex>
#include <string>
#include <string_view>

namespace {

constexpr std::size_t LONGEST_ROW = 8U << 20U; // bytes; all that is looked at

// The names that the pattern gives the file of index 0, whatever the time.
std::regex NamesOfCurrent(const std::string& pattern) {
    std::string names;
    for (std::size_t i = 0; i < pattern.size(); ++i) {
        const char escape = pattern[i] == '%' && i + 1 < pattern.size() ? pattern[++i] : '\0';
        if (escape == 'i') {
            names += '0';
        } else if (escape == '\0' || escape == '%') {
            const char c = pattern[i] == ':' || pattern[i] == '/' ? '-' : pattern[i];
            names += std::string_view("\\^$.|?*+()[]{}").find(c) != std::string_view::npos ? "\\" : "";
            names += c;
        } else {
            names += escape == 'Y' ? "[0-9]{4}" : escape == 's' ? "[0-9]{3}" : "[0-9]{2}";
        }
    }
    return std::regex(names);
}

// Where whole rows end in the text.
std::size_t EndOfRows(const LogFile& file, std::string_view text) {
    if (file.m_nFileFormat == 2) {
        std::size_t end = 0;
        for (const std::string_view mark : {"</TR>\n", "<TBODY>\n"}) {
            const std::size_t at = text.rfind(mark);
            end = at != std::string_view::npos ? std::max(end, at + mark.size()) : end;
        }
        return end;
    }
    if (file.m_nUnicode != 1) {
        return text.rfind('\n') + 1; // 0 when there is none
    }
    for (std::size_t end = text.size() & ~std::size_t(1); end >= 2; end -= 2) {
        if (text[end - 2] == '\n' && text[end - 1] == '\0') {
            return end;
        }
    }
    return 0;
}

void CutTail(const LogFile& file, const std::filesystem::path& path) {
    const std::uintmax_t size = std::filesystem::file_size(path);
    const std::uintmax_t begin = (size > LONGEST_ROW ? size - LONGEST_ROW : 0) & ~std::uintmax_t(1);
    std::string tail(static_cast<std::size_t>(size - begin), '\0');
    std::ifstream stream(path, std::ios::binary);
    stream.seekg(static_cast<std::streamoff>(begin));
    if (!stream.read(tail.data(), static_cast<std::streamsize>(tail.size()))) {
        return;
    }
    const std::size_t end = EndOfRows(file, tail);
    const bool noRows = end == 0; // a header that was not finished is written anew
    if (end == tail.size() || (noRows && begin > 0)) {
        return;
    }
    std::filesystem::resize_file(path, begin + end);
    Console::Say(path.string() + ": an unfinished end of " + std::to_string(tail.size() - end) + " bytes is cut off");
}

} // namespace

void RepairCurrentFile(const LogFile& file) {
    const std::string directory = file.Directory();
    const std::size_t name =
        directory.rfind('/') + 1; // the kernel log's may end with the beginning of the files' names
    const std::regex names = NamesOfCurrent(directory.substr(name) + file.Pattern());
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(name == 0 ? "." : directory.substr(0, name), error)) {
        if (entry.is_regular_file(error) && std::regex_match(entry.path().filename().string(), names)) {
            CutTail(file, entry.path());
        }
    }
}
