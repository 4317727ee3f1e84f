#include "net/text.hpp"

namespace morvane::connector {

std::string trim(std::string text) {
  // find_last_not_of answers npos for a text of blanks alone, and npos + 1 is 0.
  text.erase(text.find_last_not_of("\n\r \t") + 1);
  return text;
}

bool contains(std::string_view text, std::string_view needle) {
  return text.find(needle) != std::string_view::npos;
}

}  // namespace morvane::connector
