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

} // namespace Moments
