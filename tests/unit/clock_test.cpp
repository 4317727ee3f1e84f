#include "net/clock.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <ctime>
#include <string>
#include <utility>
#include <vector>

#include "net/text.hpp"
#include "support.hpp"

namespace morvane::connector {
namespace {

// Another time zone than UTC for a while.
class TimeZone {
 public:
  explicit TimeZone(const char* zone) : variable_("TZ", zone) { ::tzset(); }

 private:
  // Takes the variable back into the library once it has its old value.
  struct Refresh {
    ~Refresh() { ::tzset(); }
  } refresh_;
  test::Environment variable_;
};

TEST(Clock, a_moment_is_written_in_utc_whatever_the_time_zone) {
  const std::vector<std::pair<std::time_t, std::string>> rows = {
      {0, "1970-01-01T00:00:00"},          {1741338303, "2025-03-07T09:05:03"},
      {1767225599, "2025-12-31T23:59:59"}, {1767225600, "2026-01-01T00:00:00"},
      {1709208000, "2024-02-29T12:00:00"}, {4107542400, "2100-03-01T00:00:00"}};
  for (const char* zone : {"UTC", "XXX-9", "YYY+11:30", "America/New_York"}) {
    const TimeZone elsewhere(zone);
    for (const auto& [seconds, text] : rows) {
      EXPECT_EQ(iso8601(seconds), text + "Z") << zone;
      EXPECT_EQ(iso8601_ms(std::int64_t{seconds} * 1000 + 42), text + ".042Z") << zone;
    }
  }
}

TEST(Clock, milliseconds_have_three_digits) {
  const std::vector<std::pair<int, std::string>> rows = {
      {0, ".000Z"}, {7, ".007Z"}, {42, ".042Z"}, {999, ".999Z"}};
  for (const auto& [milliseconds, text] : rows) {
    EXPECT_EQ(iso8601_ms(1767225599000 + milliseconds), "2025-12-31T23:59:59" + text);
  }
  EXPECT_EQ(iso8601_ms(1767225599000 + 1000), "2026-01-01T00:00:00.000Z");
}

std::int64_t system_milliseconds() {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
}

TEST(Clock, a_reading_lies_between_the_system_clocks_before_and_after) {
  const std::int64_t before = system_milliseconds();
  const std::int64_t milliseconds = epoch_ms();
  const std::int64_t seconds = epoch_sec();
  const std::string text = iso8601_now_ms();
  const std::int64_t after = system_milliseconds();
  EXPECT_LE(before, milliseconds);
  EXPECT_LE(milliseconds, after);
  EXPECT_LE(before / 1000, seconds);
  EXPECT_LE(seconds, after / 1000);
  EXPECT_LE(iso8601_ms(before), text);
  EXPECT_LE(text, iso8601_ms(after));

  const std::time_t second_before = std::time(nullptr);
  const std::string second_text = iso8601_now();
  EXPECT_LE(iso8601(second_before), second_text);
  EXPECT_LE(second_text, iso8601(std::time(nullptr)));
}

TEST(Text, trim_takes_blanks_from_the_end_alone) {
  const std::vector<std::pair<std::string, std::string>> rows = {
      {"", ""},
      {"a", "a"},
      {"a\n", "a"},
      {"a \t\r\n \n", "a"},
      {" \n", ""},
      {"\t\n a", "\t\n a"},
      {"a\n b\r", "a\n b"},
      {"a\v\n", "a\v"},
      {"a\f", "a\f"},
      {std::string("a\0\n", 3), std::string("a\0", 2)}};
  for (const auto& [text, trimmed] : rows) {
    EXPECT_EQ(trim(text), trimmed) << text;
  }
}

}  // namespace
}  // namespace morvane::connector
