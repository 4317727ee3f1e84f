#include "net/digest.hpp"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "net/shell.hpp"
#include "support.hpp"

namespace morvane::connector {
namespace {

using test::every_byte;
using test::TempFolder;
using test::Tools;
using test::write_file;

struct Vector {
  std::string key, message, sha256, sha512;
};

std::string counted_bytes(int last) { return every_byte().substr(0, static_cast<size_t>(last)); }

// RFC 4231, cases 1 to 4, 6 and 7 (5 is about cutting). No vector with a NUL in key or message can
// be used: both reach openssl through a command line.
const std::vector<Vector> rfc_4231 = {
    {std::string(20, '\x0b'), "Hi There",
     "b0344c61d8db38535ca8afceaf0bf12b881dc200c9833da726e9376c2e32cff7",
     "87aa7cdea5ef619d4ff0b4241a1d6cb02379f4e2ce4ec2787ad0b30545e17cde"
     "daa833b7d6b8a702038b274eaea3f4e4be9d914eeb61f1702e696c203a126854"},
    {"Jefe", "what do ya want for nothing?",
     "5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843",
     "164b7a7bfcf819e2e395fbe73b56e0a387bd64222e831fd610270cd7ea250554"
     "9758bf75c05a994a6d034f65f8f0e6fdcaeab1a34d4a6b4b636e070a38bce737"},
    {std::string(20, '\xaa'), std::string(50, '\xdd'),
     "773ea91e36800e46854db8ebd09181a72959098b3ef8c122d9635514ced565fe",
     "fa73b0089d56a284efb0f0756c890be9b1b5dbdd8ee81a3655f83e33b2279d39"
     "bf3e848279a722c806b485a47e67c807b946a337bee8942674278859e13292fb"},
    {counted_bytes(25), std::string(50, '\xcd'),
     "82558a389a443c0ea4cc819899f2083a85f0faa3e578f8077a2e3ff46729665b",
     "b0ba465637458c6990e5a8c5f61d4af7e576d97ff94b872de76f8050361ee3db"
     "a91ca5c11aa25eb4d679275cc5788063a5f19741120c4f2de2adebeb10a298dd"},
    {std::string(131, '\xaa'), "Test Using Larger Than Block-Size Key - Hash Key First",
     "60e431591ee0b67f0d8a26aacbf5b77f8e0bc6213728c5140546040f0ee37f54",
     "80b24263c7c1a3ebb71493c1dd7be8b49b46d1f41b4aeec1121b013783f8f352"
     "6b56d037e05f2598bd0fd2215d6a1e5295e64f73f63f0aec8b915a985d786598"},
    {std::string(131, '\xaa'),
     "This is a test using a larger than block-size key and a larger than block-size data. The key "
     "needs to be hashed before being used by the HMAC algorithm.",
     "9b09ffa71b942fcb27635fbcd5b0e944bfdc63644f0713938a7f51535c3a35e2",
     "e37b6a775dc87dbaa4dfa9f96e5e3ffddebd71f8867289865df5a32d20cdc944"
     "b6022cac3c4982b10d5eeb55c3e4de15134676fb6de0446065c97440fa8c6a58"}};

TEST(Digest, hmac_gives_the_published_vectors) {
  for (const Vector& row : rfc_4231) {
    EXPECT_EQ(hmac_sha256_hex(row.key, row.message), row.sha256) << row.message;
    EXPECT_EQ(hmac_sha512_hex(row.key, row.message), row.sha512) << row.message;
  }
  // The first vector's SHA-256 again, in base64.
  EXPECT_EQ(hmac_sha256_base64(rfc_4231[0].key, rfc_4231[0].message),
            "sDRMYdjbOFNcqK/OrwvxK4gdwgDJgz2nJuk3bC4yz/c=");
}

// FIPS 180, and the empty text, which every signed request without a body hashes.
TEST(Digest, sha512_gives_the_published_vectors) {
  EXPECT_EQ(sha512_hex("abc"),
            "ddaf35a193617abacc417349ae20413112e6fa4e89a97ea20a9eeee64b55d39a"
            "2192992a274fc1a836ba3c23a3feebbd454d4423643ce80e2a9ac94fa54ca49f");
  EXPECT_EQ(sha512_hex(""),
            "cf83e1357eefb8bdf1542850d66d8007d620e4050b5715dc83f4a921d36ce9ce"
            "47d0d13c5d85f2b0ff8318d2877eec2f63b931bd47417a81a538327af927da3e");
}

// The lines that a Python program prints.
std::vector<std::string> python_lines(const std::string& program) {
  const TempFolder folder;
  write_file(folder / "program.py", program);
  std::istringstream output(run_command("python3 " + folder.path() + "/program.py").output);
  std::vector<std::string> lines;
  for (std::string line; std::getline(output, line);) {
    lines.push_back(line);
  }
  return lines;
}

TEST(Digest, every_byte_counts_in_secret_and_message) {
  const std::vector<std::string> expected = python_lines(R"(
import hashlib, hmac
for byte in range(1, 256):
    print(hmac.new(bytes([byte]), bytes([256 - byte]), 'sha256').hexdigest())
)");
  ASSERT_EQ(expected.size(), 255U);
  for (int byte = 1; byte < 256; ++byte) {
    const std::string secret(1, static_cast<char>(byte));
    const std::string message(1, static_cast<char>(256 - byte));
    EXPECT_EQ(hmac_sha256_hex(secret, message), expected[static_cast<std::size_t>(byte) - 1])
        << "secret of byte " << byte;
  }
}

TEST(Digest, awkward_secrets_and_messages_are_signed_as_they_stand) {
  const std::vector<std::string> expected = python_lines(R"(
import base64, hashlib, hmac
every = bytes(range(1, 256))
for secret, message in [(every, every), (b'k', b''), (b'-hex', b'-n'), (b"it's $HOME `x`", b'%s\\n'),
                        (b'k', b'ends in\n'), (b'k\n', b' \t'), (b'k' * 5000, b'm' * 100000)]:
    print(hmac.new(secret, message, 'sha256').hexdigest())
    print(hmac.new(secret, message, 'sha512').hexdigest())
    print(base64.b64encode(hmac.new(secret, message, 'sha256').digest()).decode())
    print(hashlib.sha512(message).hexdigest())
)");
  const std::vector<std::pair<std::string, std::string>> rows = {
      {every_byte(), every_byte()},
      {"k", ""},
      {"-hex", "-n"},
      {"it's $HOME `x`", "%s\\n"},
      {"k", "ends in\n"},
      {"k\n", " \t"},
      {std::string(5000, 'k'), std::string(100000, 'm')}};
  std::vector<std::string> actual;
  for (const auto& [secret, message] : rows) {
    actual.insert(actual.end(), {hmac_sha256_hex(secret, message), hmac_sha512_hex(secret, message),
                                 hmac_sha256_base64(secret, message), sha512_hex(message)});
  }
  EXPECT_EQ(actual, expected);
}

std::vector<std::string> all_digests() {
  return {hmac_sha256_hex("key", "text"), hmac_sha512_hex("key", "text"),
          hmac_sha256_base64("key", "text"), sha512_hex("text")};
}

TEST(Digest, without_openssl_every_digest_is_empty) {
  const std::vector<std::string> nothing(4);
  {
    const Tools tools;
    tools.add("openssl", "exit 1");
    EXPECT_EQ(all_digests(), nothing) << "openssl fails";
  }
  {
    const Tools tools("");
    EXPECT_EQ(all_digests(), nothing) << "no tool at all";
  }
}

TEST(Digest, without_xxd_the_hex_digests_alone_are_empty) {
  const std::string base64 = hmac_sha256_base64("key", "text");
  ASSERT_EQ(base64.size(), 44U);
  const Tools tools;
  tools.add("xxd", "echo half a digest; exit 1");
  EXPECT_EQ(all_digests(), (std::vector<std::string>{"", "", base64, ""}));
}

}  // namespace
}  // namespace morvane::connector
