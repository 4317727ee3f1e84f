#include "update/manifest.hpp"

#include <regex>

#include "fuzz/fuzz.hpp"

using namespace morvane::connector;

// The scanner finds what the expression finds. Only small inputs: the library's engine recurses
// once per byte.
void fuzz_one(const std::string& input) {
  static const std::regex expression("\"version\"\\s*:\\s*\"([^\"]+)\"");
  const std::string found = extract_json_string(input, "version");
  if (input.size() < 1024) {
    std::smatch match;
    require(found == (std::regex_search(input, match, expression) ? match[1].str() : ""));
  }
  require(json_escape(found).size() >= found.size());
}
