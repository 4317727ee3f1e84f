#include "net/digest.hpp"

#include <utility>

#include "net/shell.hpp"
#include "net/text.hpp"

namespace morvane::connector {
namespace {

std::string openssl_pipe(const std::string& message, const std::string& pipeline) {
  CommandOutput result = run_with_input(message, pipeline);
  return result.exit_code == 0 ? trim(std::move(result.output)) : "";
}

}  // namespace

// The column widths of xxd exceed the digests, so that each comes out on one line.

std::string hmac_sha256_hex(const std::string& secret, const std::string& message) {
  return openssl_pipe(
      message, "openssl dgst -sha256 -hmac " + shell_escape(secret) + " -binary | xxd -p -c 256");
}

std::string hmac_sha512_hex(const std::string& secret, const std::string& message) {
  return openssl_pipe(
      message, "openssl dgst -sha512 -hmac " + shell_escape(secret) + " -binary | xxd -p -c 512");
}

std::string hmac_sha256_base64(const std::string& secret, const std::string& message) {
  return openssl_pipe(message, "openssl dgst -sha256 -hmac " + shell_escape(secret) +
                                   " -binary | openssl base64 -A");
}

std::string sha512_hex(const std::string& message) {
  return openssl_pipe(message, "openssl dgst -sha512 -binary | xxd -p -c 512");
}

}  // namespace morvane::connector
