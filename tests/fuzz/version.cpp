#include "fuzz/fuzz.hpp"
#include "update/manifest.hpp"

using namespace morvane::connector;

// Comparing is an order: of three versions, cut from the input at its slashes.
void fuzz_one(const std::string& input) {
  const std::size_t first = input.find('/');
  const std::size_t second = first == std::string::npos ? first : input.find('/', first + 1);
  if (second == std::string::npos) {
    return;
  }
  const std::string a = input.substr(0, first);
  const std::string b = input.substr(first + 1, second - first - 1);
  const std::string c = input.substr(second + 1);
  require(compare_versions(a, a) == 0);
  require(compare_versions(a, b) == -compare_versions(b, a));
  if (compare_versions(a, b) <= 0 && compare_versions(b, c) <= 0) {
    require(compare_versions(a, c) <= 0);
  }
  require(compare_versions(a + ".0", a) == 0 || a.empty() || a.back() == '.');
}
