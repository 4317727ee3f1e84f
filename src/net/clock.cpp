#include "net/clock.hpp"

#include <array>
#include <chrono>
#include <cstdio>
#include <ctime>

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

std::string iso8601_now() { return utc_text(std::time(nullptr)) + "Z"; }

std::string iso8601_now_ms() {
  const std::int64_t now = epoch_ms();
  std::array<char, 8> fraction{};
  std::snprintf(fraction.data(), fraction.size(), ".%03dZ", static_cast<int>(now % 1000));
  return utc_text(static_cast<std::time_t>(now / 1000)) + fraction.data();
}

}  // namespace morvane::connector
