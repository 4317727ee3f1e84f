#pragma once

#include <cstdint>
#include <string>

namespace morvane::connector {

// Readings of the system clock since the Unix epoch.
std::int64_t epoch_ms();
inline std::int64_t epoch_sec() { return epoch_ms() / 1000; }
inline std::string epoch_ms_text() { return std::to_string(epoch_ms()); }

// Now, in UTC: 2025-03-07T09:05:03Z and 2025-03-07T09:05:03.042Z.
std::string iso8601_now();
std::string iso8601_now_ms();

}  // namespace morvane::connector
