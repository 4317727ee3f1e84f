#pragma once

#include <string>

namespace morvane::connector {

// One exchange's API credential.
struct StoredCredential {
  std::string exchange;  // the id as the user gave it
  std::string api_key;
  std::string api_secret;
  std::string passphrase;  // empty for exchanges that have none
};

// The four lines "exchange=", "api_key=", "api_secret=", "passphrase=", each ended by a line feed.
std::string to_credential_text(const StoredCredential& credential);

// Reads such lines back; missing ones leave their fields empty.
StoredCredential parse_credential_text(const std::string& text);

// What security(1) printed for a password, as the password. One that holds a non-printable byte (a
// line feed, say) is printed as hex digits alone on a line. Where no line is one of a credential,
// the last line of hex digits, an even number of them, is decoded: a Mac's tools may print warnings
// before it. All else is text already and comes back as it is.
std::string decode_keychain_output(const std::string& output);

}  // namespace morvane::connector
