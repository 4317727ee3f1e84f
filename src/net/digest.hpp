#pragma once

#include <string>

#include "net/shell.hpp"

namespace morvane::connector {

// Digests of exactly the bytes passed, by the openssl command line (and xxd). Key first, message
// second. Hex is lower case; base64 is the standard alphabet on one line. Each returns the empty
// string when its pipeline failed.
std::string hmac_sha256_hex(const std::string& secret, const std::string& message);
std::string hmac_sha512_hex(const std::string& secret, const std::string& message);
std::string hmac_sha256_base64(const std::string& secret, const std::string& message);
std::string sha512_hex(const std::string& message);

// The HMAC by `sha` ("sha256", "sha512") in hex as its pipeline printed it, for a caller who tells
// why one failed. `columns` are those of a line of xxd, more than the digest has digits.
CommandOutput hmac_hex(Literal sha, Literal columns, const std::string& secret,
                       const std::string& message);

}  // namespace morvane::connector
