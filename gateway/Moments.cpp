#include "gateway/Moments.h"

#include "base/ETime.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <limits>
#include <map>
#include <string_view>

namespace {

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
    std::string thousandths = "000";
    if (plain.size() > CLOCK && plain[CLOCK] == '.') {
        const std::size_t end = std::min(plain.find_first_not_of("0123456789", CLOCK + 1), plain.size());
        const std::string digits = plain.substr(CLOCK + 1, end - CLOCK - 1);
        thousandths = (digits + "00").substr(0, 3);
        plain.erase(CLOCK, digits.empty() ? 0 : end - CLOCK);
    }
    const std::string shape = ShapeOf(plain);
    std::tm clock{};
    if ((shape != "9999-99-99T99:99:99Z" && shape != "9999-99-99T99:99:99+99:99" &&
         shape != "9999-99-99T99:99:99-99:99") ||
        strptime(plain.c_str(), "%Y-%m-%dT%H:%M:%S%z", &clock) == nullptr) {
        return false;
    }
    constexpr int LEAP_SECOND = 60;
    constexpr long DAY = 86400; // seconds
    const std::chrono::year_month_day date{std::chrono::year(clock.tm_year + 1900),
                                           std::chrono::month(static_cast<unsigned>(clock.tm_mon + 1)),
                                           std::chrono::day(static_cast<unsigned>(clock.tm_mday))};
    if (!date.ok() || clock.tm_sec > LEAP_SECOND || std::abs(clock.tm_gmtoff) >= DAY) {
        return false;
    }
    const std::int64_t days = std::chrono::sys_days(date).time_since_epoch().count();
    const int seconds = (clock.tm_hour * 60 + clock.tm_min) * 60 + clock.tm_sec;
    return ToStamp(days * DAY + seconds - clock.tm_gmtoff, std::stoi(thousandths), stamp);
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

bool Moments::ParseSpan(const std::string& text, std::chrono::milliseconds& span) {
    static const std::map<std::string_view, std::chrono::milliseconds> UNITS = {{"ms", std::chrono::milliseconds(1)},
                                                                                {"s", std::chrono::seconds(1)},
                                                                                {"m", std::chrono::minutes(1)},
                                                                                {"h", std::chrono::hours(1)},
                                                                                {"d", std::chrono::days(1)}};
    constexpr std::chrono::milliseconds LONGEST = std::chrono::days(3652);
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

bool Moments::ParseTimeOfDay(const std::string& text, int& seconds) {
    const std::string plain = text.size() == 5 ? text + ":00" : text;
    std::tm clock{};
    if (ShapeOf(plain) != "99:99:99" || strptime(plain.c_str(), "%H:%M:%S", &clock) == nullptr || clock.tm_sec > 59) {
        return false;
    }
    seconds = (clock.tm_hour * 60 + clock.tm_min) * 60 + clock.tm_sec;
    return true;
}

std::time_t Moments::NextTimeOfDay(std::time_t now, int seconds) {
    std::tm today{};
    localtime_r(&now, &today);
    // The same time of day may come twice when the clock is put back; once is enough.
    const bool isOver = (today.tm_hour * 60 + today.tm_min) * 60 + today.tm_sec >= seconds;
    for (int day = isOver ? 1 : 0;; ++day) {
        std::tm clock{};
        clock.tm_year = today.tm_year;
        clock.tm_mon = today.tm_mon;
        clock.tm_mday = today.tm_mday + day;
        clock.tm_hour = seconds / 3600;
        clock.tm_min = seconds / 60 % 60;
        clock.tm_sec = seconds % 60;
        clock.tm_isdst = -1;
        const std::time_t moment = std::mktime(&clock);
        if (moment > now || day > 2) { // two days on is later than now in every time zone
            return moment;
        }
    }
}
