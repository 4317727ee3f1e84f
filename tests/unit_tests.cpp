#include <gtest/gtest.h>
#include <unistd.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "net/shell.hpp"
#include "state/credential_text.hpp"
#include "state/private_file.hpp"

// What nobody could see who runs the program: how a line ended, odd texts of
// the keychain, a file in the moment of its writing.

// What another run does before each reading of a state file.
std::function<void()> before_reading;

// In the place of the C library's.
extern "C" ssize_t pread(int descriptor, void* buffer, std::size_t size, off_t offset) {
  if (before_reading) before_reading();
  ::lseek(descriptor, offset, SEEK_SET);
  return ::read(descriptor, buffer, size);
}

namespace morvane::connector {
namespace {

TEST(RunCommand, gives_the_lines_own_status_and_all_that_it_printed) {
  const std::vector<std::pair<ShellLine, std::string>> rows = {
      {ShellLine("exit 3 | exit 255"), "255 "},
      // A shell that a signal killed gives the raw status.
      {ShellLine("printf before; kill -9 $$"), "9 before"},
      {ShellLine("sh -c 'echo one; echo \" two \" >&2; echo three'"),
       "0 one\n two \nthree\n"},
      // A NUL loses the rest of its line and no other.
      {ShellLine("printf 'a\\000b\\nc\\n'"), "0 ac\n"}};
  for (const auto& [line, left] : rows) {
    const CommandOutput result = run_command(line);
    EXPECT_EQ(std::to_string(result.exit_code) + " " + result.output + result.error,
              left)
        << line.text();
  }
}

TEST(CredentialText, is_read_line_by_line_without_trimming_also_from_the_keychains_hex) {
  const std::vector<std::pair<std::string, std::string>> rows = {
      {"api_secret=\napi_key=k\nexchange=okx", "okx|k||"},
      {"api_key=k\r\n\n=v\npassphrase= a=b== \n", "|k\r|| a=b== "},
      {"api_key=1\napi_key=2\n# x\napi_secret\n", "|2||"},
      {" api_key=x\napi_key =y\napi_keys=z\nAPI_KEY=z\n", "|||"},
      {"6170695F6B65793D6B\n", "|k||"},  // api_key=k
      {"6170695f6b65793d6b", "|k||"},
      {"6170695f6b65793d6b6\n", "|||"},
      {"tool(7): a warning\nabba\n6170695f6b65793d6b\n", "|k||"},
      {"api_key=plain\n6170695f6b65793d6b\n", "|plain||"},
      {"6170695f6b65793d6b x\n", "|||"}};
  for (const auto& [output, read] : rows) {
    const StoredCredential found = parse_credential_text(decode_keychain_output(output));
    const std::string secrets =
        found.api_key + "|" + found.api_secret + "|" + found.passphrase;
    EXPECT_EQ(found.exchange + "|" + secrets, read);
  }
}

TEST(StateFile, a_text_that_only_one_reading_met_is_not_taken) {
  const std::string path =
      testing::TempDir() + "connector-test-half-" + std::to_string(::getpid());
  const StateFile file(path);
  ASSERT_EQ(file.replace("half of it\n"), Kept::whole);
  int readings = 0;
  before_reading = [&] {
    const auto again = std::exchange(before_reading, nullptr);
    if (++readings == 2) file.replace("half of it\nand all\n");
    before_reading = again;
  };
  EXPECT_EQ(file.read(), "half of it\nand all\n");
  before_reading = nullptr;
  ::unlink(path.c_str());
}

}  // namespace
}  // namespace morvane::connector
