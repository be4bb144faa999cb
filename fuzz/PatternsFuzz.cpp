#include "base/ETime.h"
#include "base/EUtility.h"
#include "base/LittleEndian.h"
#include "config/EFileSpec.h"
#include "fuzz/Require.h"
#include "service/ELogFile.h"
#include "service/Entry.h"
#include "tests/kernel/TestKernel.h"

#include <cwchar>
#include <string_view>

namespace {

constexpr std::size_t HEAD = 10; // bytes of time stamp and file index
constexpr int LONGEST_PIECE = 11;

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

bool HasNone(const EString& text, const wchar_t* characters) {
    return std::wcspbrk(text, characters) == nullptr;
}

} // namespace

// The input is a time stamp and a file index, then a date, a time and a file name pattern, one a line.
extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
    static TestKernel& kernel = *new TestKernel;
    static ELogFile& service = *kvLogFileInitService(&kernel);
    if (size < HEAD) {
        return 0;
    }
    ETimeStamp stamp;
    stamp.m_nSeconds = GetU32(data);
    stamp.m_nMilliseconds = static_cast<std::uint16_t>(GetU16(data + 4) % 1000);
    const auto index = static_cast<int>(GetU32(data + 6));
    std::string_view lines(reinterpret_cast<const char*>(data) + HEAD, size - HEAD);
    service.m_DateFormat = TakeLine(lines);
    service.m_TimeFormat = TakeLine(lines);
    EFileSpec spec;
    spec.m_FileName = TakeLine(lines);
    spec.m_LogPath = L"logs/";

    ETime time(stamp);
    EString date;
    EString clock;
    Require(service.FormatDateStr(time, date) == RC_OK && service.FormatTimeStr(time, clock) == RC_OK, "the result 0");
    Require(HasNone(date, L"MDY"), "no token letter is left in a date");
    Require(HasNone(clock, L"HmSs"), "nor in a time");
    Require(date.GetLength() <= 2 * service.m_DateFormat.GetLength(), "a letter gives at most two digits");
    Require(clock.GetLength() <= service.m_TimeFormat.GetLength(), "or one, in a time");

    EString bare;
    EString whole;
    service.CalcFileName(&spec, index, &stamp, false, bare);
    service.CalcFileName(&spec, index, &stamp, true, whole);
    Require(HasNone(bare, L":/"), "a name leads nowhere else");
    Require(whole == spec.m_LogPath + bare, "the directory stands in front");
    Require(bare.GetLength() <= LONGEST_PIECE * spec.m_FileName.GetLength(), "a character gives at most a number");
    return 0;
}
