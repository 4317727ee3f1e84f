#include "net/clock.hpp"

#include <array>
#include <chrono>
#include <cstdio>

namespace morvane::connector {
namespace {

std::string utc_text(std::time_t seconds) {
  std::tm utc{};
  gmtime_r(&seconds, &utc);
  std::array<char, 64> text{};
  const std::size_t length = std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%S", &utc);
  return {text.data(), length};
}

}  // namespace

std::int64_t epoch_ms() {
  using std::chrono::milliseconds;
  const auto since_epoch = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration_cast<milliseconds>(since_epoch).count();
}

std::int64_t epoch_sec() { return epoch_ms() / 1000; }

std::string epoch_ms_text() { return std::to_string(epoch_ms()); }

std::string iso8601_now() { return iso8601(std::time(nullptr)); }

std::string iso8601_now_ms() { return iso8601_ms(epoch_ms()); }

std::string iso8601(std::time_t seconds) { return utc_text(seconds) + "Z"; }

std::string iso8601_ms(std::int64_t milliseconds) {
  std::array<char, 8> fraction{};
  std::snprintf(fraction.data(), fraction.size(), ".%03dZ", static_cast<int>(milliseconds % 1000));
  return utc_text(static_cast<std::time_t>(milliseconds / 1000)) + fraction.data();
}

}  // namespace morvane::connector
