#include "gateway/Moments.h"

#include "base/ETime.h"

#include <charconv>
#include <cmath>
#include <cstdint>
#include <limits>
#include <map>
#include <string_view>

namespace {

// Reads pieces of a text, one after the other.
class Scanner {
public:
    explicit Scanner(std::string_view text) : m_Rest(text) {}

    bool AtEnd() const { return m_Rest.empty(); }
    char Peek() const { return m_Rest.empty() ? '\0' : m_Rest.front(); }

    bool Eat(std::string_view oneOf) {
        if (m_Rest.empty() || oneOf.find(m_Rest.front()) == std::string_view::npos) {
            return false;
        }
        m_Rest.remove_prefix(1);
        return true;
    }

    // Exactly so many digits, up to `max`.
    bool Digits(std::size_t count, int max, int& number) {
        number = 0;
        for (std::size_t i = 0; i < count; ++i) {
            if (!IsDigit(Peek())) {
                return false;
            }
            number = number * 10 + (m_Rest.front() - '0');
            m_Rest.remove_prefix(1);
        }
        return number <= max;
    }

    // Digits behind a point, as thousandths.
    bool Fraction(int& thousandths) {
        thousandths = 0;
        int weight = 100;
        bool any = false;
        for (; IsDigit(Peek()); m_Rest.remove_prefix(1)) {
            thousandths += (m_Rest.front() - '0') * weight;
            weight /= 10;
            any = true;
        }
        return any;
    }

private:
    static bool IsDigit(char c) { return c >= '0' && c <= '9'; }

    std::string_view m_Rest;
};

bool ScanDate(Scanner& scanner, std::chrono::sys_days& day) {
    int year = 0;
    int month = 0;
    int dayOfMonth = 0;
    if (!scanner.Digits(4, 9999, year) || !scanner.Eat("-") || !scanner.Digits(2, 12, month) || !scanner.Eat("-") ||
        !scanner.Digits(2, 31, dayOfMonth)) {
        return false;
    }
    const std::chrono::year_month_day date{std::chrono::year(year), std::chrono::month(static_cast<unsigned>(month)),
                                           std::chrono::day(static_cast<unsigned>(dayOfMonth))};
    day = date;
    return date.ok();
}

// Hours, minutes and seconds; the last ones may be missing with `shortForm`.
bool ScanClock(Scanner& scanner, int lastSecond, bool shortForm, int& seconds) {
    int hour = 0;
    int minute = 0;
    int second = 0;
    if (!scanner.Digits(2, 23, hour) || !scanner.Eat(":") || !scanner.Digits(2, 59, minute)) {
        return false;
    }
    if (!(shortForm && scanner.AtEnd()) && (!scanner.Eat(":") || !scanner.Digits(2, lastSecond, second))) {
        return false;
    }
    seconds = (hour * 60 + minute) * 60 + second;
    return true;
}

bool ScanZone(Scanner& scanner, int& offset) {
    if (scanner.Eat("Zz")) {
        offset = 0;
        return true;
    }
    const int sign = scanner.Peek() == '-' ? -1 : 1;
    int hours = 0;
    int minutes = 0;
    if (!scanner.Eat("+-") || !scanner.Digits(2, 23, hours) || !scanner.Eat(":") || !scanner.Digits(2, 59, minutes)) {
        return false;
    }
    offset = sign * (hours * 60 + minutes) * 60;
    return true;
}

bool Fits(std::int64_t seconds) {
    return seconds >= 0 && seconds <= std::numeric_limits<std::uint32_t>::max();
}

} // namespace

ETimeStamp Moments::Now() {
    ETimeStamp now;
    ETime::GetTimeStamp(&now);
    return now;
}

bool Moments::ParseRfc3339(const std::string& text, ETimeStamp& stamp) {
    constexpr int LEAP_SECOND = 60;
    Scanner scanner(text);
    std::chrono::sys_days day;
    int clock = 0;
    int thousandths = 0;
    int offset = 0;
    if (!ScanDate(scanner, day) || !scanner.Eat("Tt ") || !ScanClock(scanner, LEAP_SECOND, false, clock) ||
        (scanner.Eat(".") && !scanner.Fraction(thousandths)) || !ScanZone(scanner, offset) || !scanner.AtEnd()) {
        return false;
    }
    const std::int64_t seconds = std::chrono::seconds(day.time_since_epoch()).count() + clock - offset;
    if (!Fits(seconds)) {
        return false;
    }
    stamp.m_nSeconds = static_cast<std::uint32_t>(seconds);
    stamp.m_nMilliseconds = static_cast<std::uint16_t>(thousandths);
    return true;
}

bool Moments::FromSeconds(double seconds, ETimeStamp& stamp) {
    const double whole = std::floor(seconds);
    if (!(whole >= 0 && whole <= std::numeric_limits<std::uint32_t>::max())) { // also what is no number
        return false;
    }
    // Half a microsecond makes up for decimal fractions that no double holds exactly, such as .042.
    const double thousandths = std::floor((seconds - whole) * 1000 + 0.0005);
    stamp.m_nSeconds = static_cast<std::uint32_t>(whole);
    stamp.m_nMilliseconds = static_cast<std::uint16_t>(thousandths < 999 ? thousandths : 999);
    return true;
}

bool Moments::ParseSpan(const std::string& text, std::chrono::milliseconds& span) {
    static const std::map<std::string_view, std::int64_t> UNITS = {
        {"ms", 1}, {"s", 1000}, {"m", 60'000}, {"h", 3'600'000}, {"d", 86'400'000}};
    constexpr std::int64_t MAX_COUNT = 100'000'000;
    std::int64_t count = 0;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, count);
    const auto unit = UNITS.find(std::string_view(rest, static_cast<std::size_t>(end - rest)));
    if (error != std::errc() || unit == UNITS.end() || count <= 0 || count > MAX_COUNT) {
        return false;
    }
    span = std::chrono::milliseconds(count * unit->second);
    return true;
}

bool Moments::ParseTimeOfDay(const std::string& text, int& seconds) {
    Scanner scanner(text);
    return ScanClock(scanner, 59, true, seconds) && scanner.AtEnd();
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
