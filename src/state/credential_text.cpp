#include "state/credential_text.hpp"

#include <algorithm>
#include <cstddef>
#include <string_view>

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

// The value of a hex digit, or -1.
int hex_value(char digit) {
  const auto position = std::string_view("0123456789abcdef0123456789ABCDEF").find(digit);
  return position == std::string_view::npos ? -1 : static_cast<int>(position % 16);
}

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
  const bool is_hex =
      std::all_of(digits.begin(), digits.end(), [](char digit) { return hex_value(digit) >= 0; });
  if (digits.empty() || digits.size() % 2 != 0 || !is_hex) {
    return output;
  }
  std::string text;
  for (std::size_t i = 0; i < digits.size(); i += 2) {
    text += static_cast<char>(hex_value(digits[i]) * 16 + hex_value(digits[i + 1]));
  }
  return text;
}

}  // namespace morvane::connector
