#include <cstdint>
#include <cstdlib>
#include <string>

#include "state/credential_text.hpp"
#include "update/manifest.hpp"

using namespace morvane::connector;

// Each text reader on the same input: what must hold of any text.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string input(reinterpret_cast<const char*>(data), size);
  if (extract_json_string(input, "k").find('"') != std::string::npos) std::abort();
  const std::string text =
      to_credential_text(parse_credential_text(decode_keychain_output(input)));
  if (to_credential_text(parse_credential_text(text)) != text) std::abort();
  const std::string rest = input.substr(size / 2);
  if (compare_versions(input, rest) != -compare_versions(rest, input)) std::abort();
  return 0;
}
