#include "net/digest.hpp"

#include <utility>

#include "net/text.hpp"

namespace morvane::connector {
namespace {

std::string text_of(CommandOutput digest) {
  return digest.exit_code == 0 ? trim(std::move(digest.output)) : "";
}

}  // namespace

std::string hmac_sha256_hex(const std::string& secret, const std::string& message) {
  return text_of(hmac_hex("sha256", "256", secret, message));
}

std::string hmac_sha512_hex(const std::string& secret, const std::string& message) {
  return text_of(hmac_hex("sha512", "512", secret, message));
}

std::string hmac_sha256_base64(const std::string& secret, const std::string& message) {
  return text_of(run_with_input(message, "openssl dgst -sha256 -hmac " + shell_word(secret) +
                                             " -binary | openssl base64 -A"));
}

std::string sha512_hex(const std::string& message) {
  return text_of(
      run_with_input(message, ShellLine("openssl dgst -sha512 -binary | xxd -p -c 512")));
}

CommandOutput hmac_hex(Literal sha, Literal columns, const std::string& secret,
                       const std::string& message) {
  return run_with_input(message, ShellLine("openssl dgst -") + sha + " -hmac " +
                                     shell_word(secret) + " -binary | xxd -p -c " + columns);
}

}  // namespace morvane::connector
