#pragma once

#include "base/ETimeStamp.h"

#include <chrono>
#include <ctime>
#include <string>

// Moments and spans of time as people write them. The readers answer false for anything else, and take nothing then.
namespace Moments {

ETimeStamp Now();

// RFC 3339, such as 2024-01-31T13:05:09.042+01:00; digits beyond milliseconds are cut. False also for moments that a
// time stamp cannot hold (before 1970, after 2106).
bool ParseRfc3339(const std::string& text, ETimeStamp& stamp);

// Seconds since 1970-01-01 UTC, with a fraction.
bool FromSeconds(double seconds, ETimeStamp& stamp);

// A span such as "500ms", "10s", "15m", "2h" or "1d", more than 0 and up to ten years.
bool ParseSpan(const std::string& text, std::chrono::milliseconds& span);

// A time of day, "HH:MM" or "HH:MM:SS", as seconds from midnight on the clock.
bool ParseTimeOfDay(const std::string& text, int& seconds);

// The first moment after `now` at which the local clock shows the time of day. One that a clock change leaves out comes
// when the clock has been put forward.
std::time_t NextTimeOfDay(std::time_t now, int seconds);

} // namespace Moments
