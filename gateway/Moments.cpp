#include "gateway/Moments.h"

#include "base/ETime.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <limits>
#include <map>
#include <string_view>

using namespace std::chrono;

namespace {

// From midnight on the clock.
int SecondsOf(const std::tm& clock) {
    return (clock.tm_hour * 60 + clock.tm_min) * 60 + clock.tm_sec;
}

// The text with every digit as a 9: strptime(3) alone would let blanks, signs and missing digits pass.
std::string ShapeOf(std::string text) {
    std::replace_if(
        text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; }, '9');
    return text;
}

bool ToStamp(std::int64_t seconds, int thousandths, ETimeStamp& stamp) {
    if (seconds < 0 || seconds > std::numeric_limits<std::uint32_t>::max()) {
        return false;
    }
    stamp.m_nSeconds = static_cast<std::uint32_t>(seconds);
    stamp.m_nMilliseconds = static_cast<std::uint16_t>(thousandths);
    return true;
}

} // namespace

ETimeStamp Moments::Now() {
    ETimeStamp now;
    ETime::GetTimeStamp(&now);
    return now;
}

bool Moments::ParseRfc3339(const std::string& text, ETimeStamp& stamp) {
    constexpr std::size_t DATE = 10;  // characters
    constexpr std::size_t CLOCK = 19; // to its end
    std::string plain = text;         // with the letters that may be small, and the blank between, as the others
    std::replace(plain.begin(), plain.end(), 'z', 'Z');
    if (plain.size() > DATE && (plain[DATE] == 't' || plain[DATE] == ' ')) {
        plain[DATE] = 'T';
    }
    std::string digits;
    if (plain.size() > CLOCK && plain[CLOCK] == '.') {
        const std::size_t end = std::min(plain.find_first_not_of("0123456789", CLOCK + 1), plain.size());
        digits = plain.substr(CLOCK + 1, end - CLOCK - 1);
        plain.erase(CLOCK, digits.empty() ? 0 : end - CLOCK);
    }
    const std::string zone = ShapeOf(plain).substr(std::min(CLOCK, plain.size()));
    std::tm clock{};
    if (!ShapeOf(plain).starts_with("9999-99-99T99:99:99") || (zone != "Z" && zone != "+99:99" && zone != "-99:99") ||
        strptime(plain.c_str(), "%Y-%m-%dT%H:%M:%S%z", &clock) == nullptr) {
        return false;
    }
    constexpr int LEAP_SECOND = 60;
    const year_month_day date{year(clock.tm_year + 1900), month(static_cast<unsigned>(clock.tm_mon + 1)),
                              day(static_cast<unsigned>(clock.tm_mday))};
    if (!date.ok() || clock.tm_sec > LEAP_SECOND || abs(seconds(clock.tm_gmtoff)) >= days(1)) {
        return false;
    }
    const sys_seconds moment = sys_days(date) + seconds(SecondsOf(clock) - clock.tm_gmtoff);
    return ToStamp(moment.time_since_epoch().count(), std::stoi((digits + "000").substr(0, 3)), stamp);
}

bool Moments::FromSeconds(double seconds, ETimeStamp& stamp) {
    const double whole = std::floor(seconds);
    if (!(std::abs(whole) <= std::numeric_limits<std::uint32_t>::max())) { // also what is no number
        return false;
    }
    // Half a microsecond makes up for decimal fractions that no double holds exactly, such as .042.
    const double thousandths = std::floor((seconds - whole) * 1000 + 0.0005);
    return ToStamp(static_cast<std::int64_t>(whole), static_cast<int>(std::min(thousandths, 999.0)), stamp);
}

bool Moments::ParseSpan(const std::string& text, milliseconds& span) {
    static const std::map<std::string_view, milliseconds> UNITS = {
        {"ms", 1ms}, {"s", 1s}, {"m", 1min}, {"h", 1h}, {"d", 24h}};
    constexpr milliseconds LONGEST = days(3652);
    std::int64_t count = 0;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, count);
    const auto unit = UNITS.find(std::string_view(rest, static_cast<std::size_t>(end - rest)));
    if (error != std::errc() || unit == UNITS.end() || count <= 0 || count > LONGEST / unit->second) {
        return false;
    }
    span = count * unit->second;
    return true;
}
