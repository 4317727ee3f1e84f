#include "update/manifest.hpp"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdlib>
#include <sstream>

namespace morvane::connector {
namespace {

// The white space of \s in the C locale.
constexpr std::string_view blanks = " \t\n\v\f\r";

// Takes blanks and then `expected` from the front of `text`; false when it is not there.
bool take_punctuation(std::string_view& text, char expected) {
  const std::size_t at = text.find_first_not_of(blanks);
  if (at == std::string_view::npos || text[at] != expected) {
    return false;
  }
  text.remove_prefix(at + 1);
  return true;
}

// A piece of a version as a number.
int version_part(const std::string& piece) {
  errno = 0;
  const long value = std::strtol(piece.c_str(), nullptr, 10);
  const bool out_of_range = errno == ERANGE || value < INT_MIN || value > INT_MAX;
  return out_of_range ? 0 : static_cast<int>(value);
}

}  // namespace

std::string extract_json_string(std::string_view json, std::string_view key) {
  const std::string quoted_key = "\"" + std::string(key) + "\"";
  for (std::size_t at = json.find(quoted_key); at != std::string_view::npos;
       at = json.find(quoted_key, at + 1)) {
    std::string_view rest = json.substr(at + quoted_key.size());
    if (!take_punctuation(rest, ':') || !take_punctuation(rest, '"')) {
      continue;
    }
    const std::size_t end = rest.find('"');
    // Without a closing quote here there is none for a later key either.
    if (end == std::string_view::npos) {
      return "";
    }
    if (end > 0) {
      return std::string(rest.substr(0, end));
    }
  }
  return "";
}

std::vector<int> parse_version_parts(const std::string& text) {
  std::vector<int> parts;
  std::istringstream pieces(text);
  for (std::string piece; std::getline(pieces, piece, '.');) {
    parts.push_back(version_part(piece));
  }
  return parts;
}

int compare_versions(const std::string& a, const std::string& b) {
  std::vector<int> left = parse_version_parts(a);
  std::vector<int> right = parse_version_parts(b);
  const std::size_t length = std::max(left.size(), right.size());
  left.resize(length, 0);
  right.resize(length, 0);
  return left == right ? 0 : (left < right ? -1 : 1);
}

}  // namespace morvane::connector
