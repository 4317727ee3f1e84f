#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <string>
#include <string_view>
#include <type_traits>

namespace morvane::connector {

// `text` without its trailing line feeds, carriage returns, spaces and tabs. Leading bytes stay.
std::string trim(std::string text);

// A text of the source with an "@" for each of `count` values; another does not compile.
template <std::size_t count>
class Form {
 public:
  consteval Form(const char* text) : text_(text) {
    if (std::count(text_.begin(), text_.end(), '@') != count) {
      throw "not as many @ as values";
    }
  }

  // The text with the values in place of the "@", raw and in their order.
  std::string with(std::array<std::string_view, count> values) const {
    std::string filled;
    auto value = values.begin();
    for (const char byte : text_) {
      filled += byte == '@' ? *value++ : std::string_view(&byte, 1);
    }
    return filled;
  }

 private:
  std::string_view text_;
};

template <typename... Values>
std::string filled(std::type_identity_t<Form<sizeof...(Values)>> form, const Values&... values) {
  return form.with({values...});
}

// `text` for the inside of a literal between two `quote`: tab, line feed, carriage return, the
// quote and backslash are escaped with a backslash, every other byte stands as it is.
std::string escaped(std::string_view text, char quote);

inline bool contains(std::string_view text, std::string_view needle) {
  return text.find(needle) != std::string_view::npos;
}

inline const char* true_or_false(bool value) { return value ? "true" : "false"; }
}  // namespace morvane::connector
