#include "gateway/Configuration.h"
#include "gateway/Console.h"
#include "gateway/Text.h"

#include <algorithm>
#include <fstream>
#include <string_view>

#include <fnmatch.h>

std::string MakeGlob(const std::string& pattern, const std::string& index) {
    std::string names;
    for (std::size_t i = 0; i < pattern.size(); ++i) {
        const char escape = pattern[i] == '%' && i + 1 < pattern.size() ? pattern[++i] : '\0';
        if (escape == 'i') {
            names += index;
        } else if (escape == '\0' || escape == '%') {
            names += '\\';
            names += pattern[i] == ':' || pattern[i] == '/' ? '-' : pattern[i];
        } else {
            for (int digits = escape == 'Y' ? 4 : escape == 's' ? 3 : 2; digits > 0; --digits) {
                names += "[0-9]";
            }
        }
    }
    return names;
}

namespace {

// The end of the last mark, 0 when there is none. Characters of UTF-16 begin at even offsets.
std::size_t EndOfLast(std::string_view mark, bool isUtf16, std::string_view text) {
    std::size_t at = text.rfind(mark);
    while (isUtf16 && at != std::string_view::npos && at % 2 != 0) {
        at = text.rfind(mark, at - 1);
    }
    return at != std::string_view::npos ? at + mark.size() : 0;
}

// The end of the last whole row in `text`, the end of the file or `all` of it; 0 when there is none.
std::size_t EndOfRows(const LogFileSettings& file, std::string_view text, bool all) {
    if (file.m_nFileFormat != FORMAT_HTML) {
        const bool isUtf16 = file.m_nUnicode == UNICODE_UTF16;
        return EndOfLast(std::string_view("\n\0", isUtf16 ? 2 : 1), isUtf16, text);
    }
    const std::size_t head = EndOfLast(Narrow(HTML_HEAD_END), false, text);
    const bool isHeadMissing = all && head == 0; // then what looks like a row is the one of headings
    return isHeadMissing ? 0 : std::max(head, EndOfLast(Narrow(HTML_ROW_END), false, text));
}

// Whether a file that begins so has the log file's format and encoding: it may be older than the configuration. After a
// loss of power it may begin with zeros.
bool IsOwn(const LogFileSettings& file, std::string_view begin) {
    constexpr std::string_view UTF16_MARK = "\xFF\xFE";
    return begin.front() == '\0' || (file.m_nFileFormat == FORMAT_HTML  ? begin.front() == '<'
                                     : file.m_nUnicode == UNICODE_UTF16 ? UTF16_MARK.starts_with(begin)
                                                                        : begin != UTF16_MARK);
}

void CutTail(const LogFileSettings& file, const std::filesystem::path& path) {
    constexpr std::size_t LONGEST_ROW = 8U << 20U; // bytes; all that is looked at
    const std::uintmax_t size = std::filesystem::file_size(path);
    const std::uintmax_t begin = (size > LONGEST_ROW ? size - LONGEST_ROW : 0) & ~std::uintmax_t(1);
    std::string tail(static_cast<std::size_t>(size - begin), '\0');
    std::ifstream stream(path, std::ios::binary);
    std::string first(std::min<std::size_t>(tail.size(), 2), '\0');
    stream.read(first.data(), static_cast<std::streamsize>(first.size()));
    stream.seekg(static_cast<std::streamoff>(begin));
    if (!stream.read(tail.data(), static_cast<std::streamsize>(tail.size())) || first.empty() || !IsOwn(file, first)) {
        return;
    }
    const std::size_t end = EndOfRows(file, tail, begin == 0);
    const bool noRows = end == 0; // a header that was not finished is written anew
    if (end == tail.size() || (noRows && begin > 0)) {
        return;
    }
    std::filesystem::resize_file(path, begin + end);
    Console::Say(path.string() + ": an unfinished end of " + Plural(tail.size() - end, "byte") + " is cut off");
}

} // namespace

void LogFileSettings::RepairCurrent() const {
    const std::string directory = Directory();
    const std::size_t name = directory.rfind('/') + 1; // the kernel log's may end with the beginning of the file names
    const std::string names = MakeGlob(directory.substr(name) + Pattern(), "0");
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(name == 0 ? "." : directory.substr(0, name), error)) {
        if (entry.is_regular_file(error) && fnmatch(names.c_str(), entry.path().filename().c_str(), 0) == 0) {
            CutTail(*this, entry.path());
        }
    }
}
