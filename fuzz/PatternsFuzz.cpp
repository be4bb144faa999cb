#include "base/ETime.h"
#include "base/EUtility.h"
#include "config/EFileSpec.h"
#include "fuzz/Require.h"
#include "service/ELogFile.h"
#include "service/Entry.h"
#include "tests/kernel/TestKernel.h"

#include <algorithm>
#include <cstring>
#include <ctime>
#include <cwchar>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

constexpr std::size_t HEAD = 10; // bytes of time stamp and file index

// UTF-8, or single characters where it is none.
EString Decode(std::string_view bytes) {
    EString text = Widen(std::string(bytes));
    if (text.IsEmpty()) {
        for (const char byte : bytes) {
            text += static_cast<wchar_t>(static_cast<unsigned char>(byte));
        }
    }
    return text.IsEmpty() ? text : EString(static_cast<const wchar_t*>(text)); // as far as a null character
}

// The first line of the text, which it loses.
EString TakeLine(std::string_view& text) {
    const std::size_t end = text.find('\n');
    const EString line = Decode(text.substr(0, end));
    text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
    return line;
}

// What stands in a pattern, and what it becomes; the first that fits counts.
using Tokens = std::vector<std::pair<std::wstring, std::wstring>>;

EString Replace(const wchar_t* pattern, const Tokens& tokens) {
    EString text;
    for (std::wstring_view left = pattern; !left.empty();) {
        const auto fits = [&](const auto& token) { return left.starts_with(token.first); };
        const auto token = std::ranges::find_if(tokens, fits);
        if (token != tokens.end()) {
            text += token->second.c_str();
            left.remove_prefix(token->first.size());
        } else {
            text += left[0];
            left.remove_prefix(1);
        }
    }
    return text;
}

// What docs/configuration.md says of patterns, with the C library's calendar.
struct Model {
    Model(const ETimeStamp& stamp, int index) {
        const std::time_t seconds = stamp.m_nSeconds;
        const std::tm* calendar = std::localtime(&seconds);
        const auto field = [&](const wchar_t* format) {
            wchar_t text[8];
            return std::wstring(text, std::wcsftime(text, std::size(text), format, calendar));
        };
        const std::wstring milliseconds = std::to_wstring(1000 + stamp.m_nMilliseconds).substr(1);
        m_Date = {{L"YYYY", field(L"%Y")},
                  {L"YYY", field(L"%Y")},
                  {L"YY", field(L"%y")},
                  {L"MM", field(L"%m")},
                  {L"DD", field(L"%d")},
                  {L"Y", L""},
                  {L"M", L""},
                  {L"D", L""}};
        m_Time = {{L"HH", field(L"%H")}, {L"mm", field(L"%M")}, {L"SS", field(L"%S")}, {L"sss", milliseconds},
                  {L"H", L""},           {L"m", L""},           {L"S", L""},           {L"s", L""}};
        m_File = {{L"%i", std::to_wstring(index)}, {L"%s", milliseconds}, {L"%%", L"%"}, {L":", L"-"}, {L"/", L"-"}};
        for (const wchar_t* escape : {L"%Y", L"%y", L"%m", L"%d", L"%H", L"%M", L"%S"}) {
            m_File.emplace_back(escape, field(escape));
        }
    }

    Tokens m_Date;
    Tokens m_Time;
    Tokens m_File;
};

} // namespace

// The input is a time stamp and a file index, then a date, a time and a file name pattern, one a line.
extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
    static const int zone = setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    Require(zone == 0, "a time zone with summer time");
    static TestKernel& kernel = *new TestKernel;
    static ELogFile& service = *kvLogFileInitService(&kernel);
    if (size < HEAD) {
        return 0;
    }
    ETimeStamp stamp;
    std::memcpy(&stamp, data, sizeof stamp);
    stamp.m_nMilliseconds = static_cast<std::uint16_t>(stamp.m_nMilliseconds % 1000);
    int index = 0;
    std::memcpy(&index, data + sizeof stamp, sizeof index);
    std::string_view lines(reinterpret_cast<const char*>(data) + HEAD, size - HEAD);
    service.m_DateFormat = TakeLine(lines);
    service.m_TimeFormat = TakeLine(lines);
    EFileSpec spec;
    spec.m_FileName = TakeLine(lines);
    spec.m_LogPath = L"logs/";

    const Model model(stamp, index);
    ETime time(stamp);
    EString date;
    EString clock;
    Require(service.FormatDateStr(time, date) == RC_OK && service.FormatTimeStr(time, clock) == RC_OK, "the result 0");
    Require(date == Replace(service.m_DateFormat, model.m_Date), "the date");
    Require(clock == Replace(service.m_TimeFormat, model.m_Time), "the time");

    EString bare;
    EString whole;
    service.CalcFileName(&spec, index, &stamp, false, bare);
    service.CalcFileName(&spec, index, &stamp, true, whole);
    Require(bare == Replace(spec.m_FileName, model.m_File), "the file's name");
    Require(whole == spec.m_LogPath + bare, "the directory stands in front");
    return 0;
}
