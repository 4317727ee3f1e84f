#include "state/credential_text.hpp"

#include <algorithm>
#include <cstddef>
#include <sstream>

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

// Whether it is one of the lines of a credential.
bool is_field(const std::string& line) {
  return std::any_of(credential_fields.begin(), credential_fields.end(), [&](const auto& field) {
    return line.starts_with(std::string(field.key) + "=");
  });
}

bool is_hex(const std::string& text) {
  return !text.empty() && text.size() % 2 == 0 &&
         text.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
}

std::string from_hex(const std::string& digits) {
  std::string text;
  for (std::size_t i = 0; i < digits.size(); i += 2) {
    text += static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, 16));
  }
  return text;
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
  std::string digits;
  std::istringstream lines(output);
  for (std::string line; std::getline(lines, line);) {
    if (is_field(line)) {
      return output;
    }
    if (is_hex(trim(line))) {
      digits = trim(line);
    }
  }
  return digits.empty() ? output : from_hex(digits);
}

}  // namespace morvane::connector
