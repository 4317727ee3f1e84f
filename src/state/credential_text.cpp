#include "state/credential_text.hpp"

#include <cstddef>

#include "net/text.hpp"
#include "state/record_text.hpp"

namespace morvane::connector {
namespace {

constexpr RecordFields<StoredCredential, 4> credential_fields = {{
    {"exchange", &StoredCredential::exchange},
    {"api_key", &StoredCredential::api_key},
    {"api_secret", &StoredCredential::api_secret},
    {"passphrase", &StoredCredential::passphrase},
}};

}  // namespace

std::string to_credential_text(const StoredCredential& credential) {
  return to_text(credential, credential_fields);
}

StoredCredential parse_credential_text(const std::string& text) {
  StoredCredential credential;
  from_text(text, credential_fields, credential);
  return credential;
}

std::string decode_keychain_output(const std::string& output) {
  const std::string digits = trim(output);
  const bool is_hex = digits.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
  if (digits.empty() || digits.size() % 2 != 0 || !is_hex) {
    return output;
  }
  std::string text;
  for (std::size_t i = 0; i < digits.size(); i += 2) {
    text += static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, 16));
  }
  return text;
}

}  // namespace morvane::connector
