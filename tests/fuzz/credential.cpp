#include "fuzz/fuzz.hpp"
#include "state/credential_text.hpp"

using namespace morvane::connector;

namespace {

std::string to_hex(const std::string& text) {
  std::string hex;
  for (const char byte : text) {
    hex += "0123456789abcdef"[static_cast<unsigned char>(byte) / 16];
    hex += "0123456789abcdef"[static_cast<unsigned char>(byte) % 16];
  }
  return hex;
}

}  // namespace

void fuzz_one(const std::string& input) {
  // Hex of anything reads back as it was; what is read is written so that it reads the same.
  require(input.empty() || decode_keychain_output(to_hex(input) + "\n") == input);
  const StoredCredential first = parse_credential_text(decode_keychain_output(input));
  const StoredCredential second = parse_credential_text(to_credential_text(first));
  require(first.exchange == second.exchange && first.api_key == second.api_key &&
          first.api_secret == second.api_secret && first.passphrase == second.passphrase);
}
