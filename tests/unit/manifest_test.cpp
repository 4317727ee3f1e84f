#include "update/manifest.hpp"

#include <gtest/gtest.h>

#include <array>
#include <random>
#include <regex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "support.hpp"

namespace morvane::connector {
namespace {

// What the scanner stands for: the first match of the expression.
std::string by_expression(const std::string& json, const std::regex& expression) {
  std::smatch match;
  return std::regex_search(json, match, expression) ? match[1].str() : "";
}

const std::regex version_member(R"re("version"\s*:\s*"([^"]+)")re");
const std::regex k_member(R"re("k"\s*:\s*"([^"]+)")re");

TEST(ManifestScanner, reads_the_first_string_member_of_that_name) {
  const std::vector<std::pair<std::string, std::string>> rows = {
      {"{\"version\" \t\n\v\f\r:\r\f\v\n\t \"0.2.0\"}", "0.2.0"},
      {R"({"version":"","old":{"version":"1"}})", "1"},
      {R"({"versions":"1","a":"version","version":2,"version":"3"})", "3"},
      {R"({"version":"a\"b"})", R"(a\)"},
      {R"({"Version":"1","version"::"1","version":["1"],"version":"1)", ""},
      {R"({"version":"version":"1"})", "version"},
      {R"("version""version":"1")", "1"},
      {"{\"version\":\"a\nb\xff\"}", "a\nb\xff"},
      {"{\"version\"\xc2\xa0:\"1\"}", ""},
      {std::string("{\"version\":\"1\0002\"}", 16), std::string("1\0002", 3)},
      {"\"version\":", ""}};
  for (const auto& [json, value] : rows) {
    EXPECT_EQ(extract_json_string(json, "version"), value) << json;
    EXPECT_EQ(by_expression(json, version_member), value) << json;
  }
}

TEST(ManifestScanner, agrees_with_the_expression_on_near_misses) {
  using namespace std::string_view_literals;
  constexpr std::array pieces = {"\""sv,   "\""sv,   "k"sv,     "\"k\""sv, "\"k\":"sv, "\"k\":\""sv,
                                 ":"sv,    ":"sv,    "\":\""sv, "\"\""sv,  " "sv,      "\t"sv,
                                 "\n"sv,   "\v"sv,   "\f"sv,    "\r"sv,    "\0"sv,     "\x80"sv,
                                 "\x85"sv, "\xa0"sv, "\\"sv,    "\\\""sv,  "1"sv,      "{"sv};
  std::mt19937 engine(20250307);
  for (int round = 0; round < 40000; ++round) {
    std::string json;
    for (auto left = engine() % 14; left > 0; --left) json += pieces.at(engine() % pieces.size());
    ASSERT_EQ(extract_json_string(json, "k"), by_expression(json, k_member))
        << "round " << round << ": " << testing::PrintToString(json);
  }
}

std::string repeated(std::string_view piece, int times) {
  std::string text;
  while (times-- > 0) text += piece;
  return text;
}

// Of sizes at which a backtracking matcher runs out of stack, or out of patience.
TEST(ManifestScanner, reads_any_length) {
  constexpr int million = 1000000;
  const std::string value(8U << 20, 'v');
  const std::string member = "\"version\":\"1.2\"";
  const std::vector<std::pair<std::string, std::string>> rows = {
      {"{\"version\":\"" + value + "\"}", value},
      {repeated("\"", million) + member, "1.2"},
      {repeated("\"version\":\"\"", million) + member, "1.2"},
      {repeated("\"version", million), ""},
      {"\"version\"" + repeated(" ", 8 * million) + ":" + repeated("\n", million) + "\"1.2\"",
       "1.2"},
      {"\"version\"" + repeated(" ", 8 * million), ""}};
  for (std::size_t row = 0; row < rows.size(); ++row) {
    // Not the texts themselves, which a failure would print.
    EXPECT_TRUE(extract_json_string(rows[row].first, "version") == rows[row].second) << row;
  }
}

TEST(JsonEscape, five_characters_are_escaped_and_no_others) {
  EXPECT_EQ(json_escape("a\"b\\c\td\ne\rf"), R"(a\"b\\c\td\ne\rf)");
  for (const char byte : test::every_byte()) {
    const bool special = std::string("\t\n\r\"\\").find(byte) != std::string::npos;
    EXPECT_EQ(json_escape(std::string(1, byte)).size(), special ? 2U : 1U) << int{byte};
  }
}

TEST(Versions, parts_are_the_numbers_between_the_dots) {
  const std::vector<std::pair<std::string, std::vector<int>>> rows = {
      {"", {}},
      {"1..2", {1, 0, 2}},
      {"3-beta.v2.x", {3, 0, 0}},
      {" 1.\t2.+3.-4.- 5", {1, 2, 3, -4, 0}},
      {"1 .0x10.007.1e3\n", {1, 0, 7, 1}},
      {"2147483647.2147483648.-2147483648.-2147483649", {2147483647, 0, -2147483647 - 1, 0}},
      {"99999999999999999999.1", {0, 1}}};
  for (const auto& [text, parts] : rows) EXPECT_EQ(parse_version_parts(text), parts) << text;
}

TEST(Versions, are_ordered_number_by_number) {
  const auto ascending = test::split(
      "=0=0.0=v2=unknown=2147483648<0.1=0.1.0<0.1.1<0.9.9<0.10.0<1.0.-1<1=1.=+1= 1<1.0.0.1<"
      "1.0.2=1..2<1.2=1.2.0<1.2.3<1.3<1.9.9.9<1.10<2<3=3-beta<2147483647",
      '<');
  for (std::size_t i = 0; i < ascending.size(); ++i) {
    for (const std::string& a : test::split(ascending[i], '=')) {
      for (std::size_t j = 0; j < ascending.size(); ++j) {
        for (const std::string& b : test::split(ascending[j], '=')) {
          EXPECT_EQ(compare_versions(a, b), i == j ? 0 : (i < j ? -1 : 1)) << a << " and " << b;
        }
      }
    }
  }
}

}  // namespace
}  // namespace morvane::connector
