#include "net/text.hpp"

namespace morvane::connector {

std::string trim(std::string text) {
  // find_last_not_of answers npos for a text of blanks alone, and npos + 1 is 0.
  text.erase(text.find_last_not_of("\n\r \t") + 1);
  return text;
}

std::string escaped(std::string_view text, char quote) {
  std::string literal;
  for (const char byte : text) {
    const std::size_t control = std::string_view("\t\n\r").find(byte);
    if (control != std::string_view::npos) {
      literal.append({'\\', "tnr"[control]});
    } else if (byte == quote || byte == '\\') {
      literal.append({'\\', byte});
    } else {
      literal += byte;
    }
  }
  return literal;
}

}  // namespace morvane::connector
