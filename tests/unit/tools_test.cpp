#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <ctime>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "app/connector_health.hpp"
#include "exchanges/exchange_connection_status.hpp"
#include "exchanges/python_probe.hpp"
#include "net/clock.hpp"
#include "net/digest.hpp"
#include "net/shell.hpp"
#include "net/text.hpp"
#include "support.hpp"

// What is run as a command line, and the small texts that go into one or are printed: digests,
// Python literals, moments, names of states.

namespace morvane::connector {
namespace {

using test::every_byte;
using test::Tools;
using Words = std::vector<std::string>;
using Rows = std::vector<std::pair<std::string, std::string>>;

TEST(ShellEscape, any_text_comes_back_from_the_shell_as_one_argument) {
  // One text a line.
  auto values = test::split(R"(
''''
'; exit 7; '
'\''
\'
a\nb\0
$(exit 7)`exit 7`$HOME
-n
--
-e \t
%s%d%n%%
!! !$ * ? [a] ~ {a,b}
 a;b&c|d>e<f#g  "double"  )",
                            '\n');
  values.insert(values.end(), {every_byte(), "trailing\n", "\nleading", "caf\xc3\xa9 \xff\xfe"});
  for (const char byte : every_byte()) values.emplace_back(1, byte);
  for (const std::string& value : values) {
    const CommandOutput echoed =
        run_command("sh -c 'printf \"%s%s\" $# \"$2\"' sh x " + shell_escape(value) + " y");
    EXPECT_EQ(echoed.exit_code, 0) << testing::PrintToString(value);
    EXPECT_EQ(echoed.output, "3" + value);
  }
  EXPECT_EQ(shell_escape("it's $x `y`"), R"('it'\''s $x `y`')");
}

TEST(RunCommand, gives_the_lines_own_status_and_all_that_it_printed) {
  const std::vector<std::tuple<std::string, int, std::string>> rows = {
      {"true", 0, ""},
      {"exit 255", 255, ""},
      {"exit 3 | exit 4", 4, ""},
      // A shell that a signal killed gives the raw status.
      {"printf before; kill -9 $$", SIGKILL, "before"},
      {"sh -c \"printf ' wrong \\n\\n' >&2\"", 0, " wrong \n\n"},
      {"sh -c 'echo one; echo two >&2; echo three'", 0, "one\ntwo\nthree\n"},
      {"printf quiet 2>/dev/null", 0, "quiet"},
      // A NUL loses the rest of its line and no other.
      {"printf 'a\\000b\\nc\\n'", 0, "ac\n"},
      {"printf '\\000\\n\\nx'", 0, "\nx"},
      {"printf 'a\\nb\\000'", 0, "a\nb"}};
  for (const auto& [command, exit_code, output] : rows) {
    const CommandOutput result = run_command(command);
    EXPECT_EQ(result.exit_code, exit_code) << command;
    EXPECT_EQ(result.output + result.error, output) << command;
  }
  const CommandOutput missing = run_command("no-such-tool-anywhere --flag");
  EXPECT_EQ(missing.exit_code, 127);
  EXPECT_NE(missing.output.find("no-such-tool-anywhere"), std::string::npos) << missing.output;
  const CommandOutput too_long = run_command(": " + std::string(32UL << 20, 'x'));
  EXPECT_EQ(too_long.exit_code, -1);
  EXPECT_EQ(too_long.error, "popen failed");
}

TEST(RunCommand, output_of_any_length_arrives_whole_and_in_order) {
  Words texts(1);
  for (std::size_t length = 0; length < 9000; length += 7) {
    texts[0] += std::to_string(length) + std::string(length, ' ') + "\n";
  }
  for (const std::size_t length : {1UL, 4094UL, 4095UL, 4096UL, 4097UL, 8190UL, 8192UL, 300000UL}) {
    const std::string line(length, 'x');
    texts.insert(texts.end(), {line, line + "\n", line + "\n\n" + line + "\ny"});
  }
  const test::TempFolder folder;
  for (const std::string& text : texts) {
    test::write_file(folder / "text", text);
    const std::string output = run_command("cat " + folder.path() + "/text").output;
    // Not the texts themselves, which a failure would print.
    EXPECT_TRUE(output == text) << output.size() << " of " << text.size();
  }
}

TEST(RunWithInput, the_pipeline_reads_exactly_the_text) {
  for (const std::string& text : Words{"", every_byte(), "%s\\n", "-n"}) {
    EXPECT_EQ(run_with_input(text, "cat").output, text);
  }
  EXPECT_EQ(run_with_input("abc", "cat >/dev/null; exit 5").exit_code, 5);
}

Words all_digests(const std::string& secret, const std::string& message) {
  return {hmac_sha256_hex(secret, message), hmac_sha512_hex(secret, message),
          hmac_sha256_base64(secret, message), sha512_hex(message)};
}

// RFC 4231, case 2, and the SHA-512 of nothing. No vector with a NUL can be used: key and message
// reach openssl through a command line. The empty text is what a signed request without a body
// hashes.
TEST(Digest, gives_the_published_vectors) {
  const std::string key = "Jefe", message = "what do ya want for nothing?";
  EXPECT_EQ(hmac_sha256_hex(key, message),
            "5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843");
  EXPECT_EQ(hmac_sha512_hex(key, message),
            "164b7a7bfcf819e2e395fbe73b56e0a387bd64222e831fd610270cd7ea250554"
            "9758bf75c05a994a6d034f65f8f0e6fdcaeab1a34d4a6b4b636e070a38bce737");
  EXPECT_EQ(sha512_hex(""),
            "cf83e1357eefb8bdf1542850d66d8007d620e4050b5715dc83f4a921d36ce9ce"
            "47d0d13c5d85f2b0ff8318d2877eec2f63b931bd47417a81a538327af927da3e");
}

TEST(Digest, every_byte_of_secret_and_message_is_signed_as_python_signs_it) {
  Rows rows = {{every_byte(), every_byte()},
               {"k", ""},
               {"-hex it's $HOME `x`", "-n%s\\n"},
               {"k\n", " \tends in\n"},
               {std::string(5000, 'k'), std::string(100000, 'm')}};
  for (std::size_t byte = 0; byte < 255; byte += 3) {
    rows.emplace_back(every_byte().substr(byte, 1), every_byte().substr(byte + 1, 2));
  }
  const test::TempFolder folder;
  std::string actual;
  for (std::size_t row = 0; row < rows.size(); ++row) {
    const auto& [secret, message] = rows[row];
    test::write_file(folder / std::to_string(row) + ".secret", secret);
    test::write_file(folder / std::to_string(row) + ".message", message);
    for (const std::string& digest : all_digests(secret, message)) actual += digest + "\n";
  }
  test::write_file(folder / "program.py", R"(
import base64, hashlib, hmac, pathlib, sys
folder = pathlib.Path(sys.argv[1])
for row in range(int(sys.argv[2])):
    secret, message = ((folder / f'{row}.{name}').read_bytes() for name in ('secret', 'message'))
    sha256, sha512 = (hmac.new(secret, message, name) for name in ('sha256', 'sha512'))
    print(sha256.hexdigest(), sha512.hexdigest(), base64.b64encode(sha256.digest()).decode(),
          hashlib.sha512(message).hexdigest(), sep='\n')
)");
  const std::string arguments = folder.path() + " " + std::to_string(rows.size());
  EXPECT_EQ(actual, run_command("python3 " + (folder / "program.py ") + arguments).output);
}

TEST(Digest, a_tool_that_fails_or_is_missing_gives_an_empty_text) {
  const Tools tools;
  tools.add("xxd", "echo half a digest; exit 1");
  const Words digests = all_digests("key", "text");
  EXPECT_EQ(digests, (Words{"", "", digests[2], ""}));
  EXPECT_EQ(digests[2].size(), 44U);
  tools.add("openssl", "exit 1");
  EXPECT_EQ(all_digests("key", "text"), Words(4));
}

TEST(Clock, a_moment_is_written_in_utc_with_three_digits_whatever_the_time_zone) {
  const std::vector<std::pair<std::time_t, std::string>> moments = {
      {0, "1970-01-01T00:00:00"},
      {1741338303, "2025-03-07T09:05:03"},
      {1767225599, "2025-12-31T23:59:59"},
      {1709208000, "2024-02-29T12:00:00"}};
  const std::vector<std::pair<int, std::string>> fractions = {
      {0, ".000Z"}, {7, ".007Z"}, {42, ".042Z"}, {999, ".999Z"}};
  for (const char* zone : {"XXX-9", "YYY+11:30", "America/New_York", "UTC"}) {
    const test::Environment elsewhere("TZ", zone);
    ::tzset();
    for (const auto& [seconds, text] : moments) {
      EXPECT_EQ(iso8601(seconds), text + "Z") << zone;
      for (const auto& [milliseconds, fraction] : fractions) {
        EXPECT_EQ(iso8601_ms(std::int64_t{seconds} * 1000 + milliseconds), text + fraction) << zone;
      }
    }
  }
  ::tzset();
}

TEST(Clock, a_reading_lies_between_the_system_clocks_before_and_after) {
  const auto system = [] {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
  };
  const std::int64_t before = system();
  const std::int64_t milliseconds = epoch_ms();
  const std::int64_t seconds = epoch_sec();
  const std::string text = iso8601_now_ms();
  const std::int64_t after = system();
  EXPECT_TRUE(before <= milliseconds && milliseconds <= after) << milliseconds;
  EXPECT_TRUE(before / 1000 <= seconds && seconds <= after / 1000) << seconds;
  EXPECT_TRUE(iso8601_ms(before) <= text && text <= iso8601_ms(after)) << text;
  const std::time_t second = std::time(nullptr);
  const std::string now = iso8601_now();
  EXPECT_TRUE(iso8601(second) <= now && now <= iso8601(std::time(nullptr))) << now;
}

TEST(Text, trim_takes_blanks_from_the_end_alone) {
  const Rows rows = {{"", ""},
                     {"a \t\r\n \n", "a"},
                     {" \n", ""},
                     {"\t\n a", "\t\n a"},
                     {"a\n b\r", "a\n b"},
                     {"a\v\n", "a\v"},
                     {"a\f", "a\f"}};
  for (const auto& [text, trimmed] : rows) EXPECT_EQ(trim(text), trimmed) << text;
}

TEST(PyStringLiteral, every_text_is_read_back_by_python_as_itself) {
  Words values =
      test::split(R"(|'''|\\|\'|\n|a\|\x41\u0041\N{BULLET}|{value}%s|#|'+exit()+')", '|');
  values.push_back("\xc3\xa9 \xe2\x82\xac \xf0\x9f\x94\x91");
  for (const char byte : every_byte().substr(0, 127)) {  // above it, only UTF-8 is text
    values.emplace_back(1, byte);
    values.push_back(std::string(1, byte) + "\\" + byte + "n'");
  }
  std::string script = "for value in (";
  std::string expected;
  for (const std::string& value : values) {
    script += py_string_literal(value) + ",";
    for (const char byte : value) expected += std::to_string(byte & 0xff) + " ";
    expected += "\n";
  }
  EXPECT_EQ(run_python(script + "):\n    print(*value.encode(), '')\nprint('end')"),
            expected + "end");
  EXPECT_EQ(py_string_literal("a\tb\nc\rd'e\\f\"$"), R"('a\tb\nc\rd\'e\\f"$')");
}

TEST(RunPython, what_was_printed_comes_back_trimmed_and_a_failure_gives_nothing) {
  EXPECT_EQ(run_python("print(' a\\n\\tb \\t\\r\\n')"), " a\n\tb");
  for (const char* script : {"print('x')\nraise ValueError", "print(", "", "print()"}) {
    EXPECT_EQ(run_python(script), "") << script;
  }
  const Tools no_tools("");
  EXPECT_EQ(run_python("print(1)"), "");
}

TEST(States, are_printed_by_their_names_and_anything_else_as_unknown) {
  int value = 0;
  for (const char* name : {"starting", "pairing_required", "ready", "degraded", "error"}) {
    EXPECT_EQ(to_string(static_cast<ConnectorHealth>(value++)), name);
  }
  value = 0;
  for (const char* name : {"not_configured", "configured", "validating", "valid_read_only",
                           "valid_trade_ready", "invalid", "error"}) {
    EXPECT_EQ(to_string(static_cast<ExchangeConnectionStatus>(value++)), name);
  }
  for (const int outside : {-1, 7, 2147483647}) {
    EXPECT_EQ(to_string(static_cast<ConnectorHealth>(outside)), "unknown");
    EXPECT_EQ(to_string(static_cast<ExchangeConnectionStatus>(outside)), "unknown");
  }
}

}  // namespace
}  // namespace morvane::connector
