#pragma once

#include <cstdint>
#include <ctime>
#include <string>

namespace morvane::connector {

// Readings of the system clock since the Unix epoch.
std::int64_t epoch_ms();
std::int64_t epoch_sec();
std::string epoch_ms_text();  // in decimal

// Now, in UTC: 2025-03-07T09:05:03Z and 2025-03-07T09:05:03.042Z.
std::string iso8601_now();
std::string iso8601_now_ms();

// The same two texts for a given moment (not before the epoch).
std::string iso8601(std::time_t seconds);
std::string iso8601_ms(std::int64_t milliseconds);

}  // namespace morvane::connector
