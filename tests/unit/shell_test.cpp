#include "net/shell.hpp"

#include <gtest/gtest.h>

#include <csignal>
#include <string>
#include <utility>
#include <vector>

#include "support.hpp"

namespace morvane::connector {
namespace {

using test::every_byte;
using test::TempFolder;
using test::write_file;

// `value` through the real shell and back.
std::string round_trip(const std::string& value) {
  const CommandOutput echoed = run_command("printf %s " + shell_escape(value));
  EXPECT_EQ(echoed.exit_code, 0);
  return echoed.output;
}

TEST(ShellEscape, a_word_is_single_quoted_with_each_quote_outside) {
  const std::vector<std::pair<std::string, std::string>> rows = {
      {"", "''"}, {"it's", R"('it'\''s')"}, {"'", R"(''\''')"}, {"$x `y`; z", "'$x `y`; z'"}};
  for (const auto& [value, word] : rows) {
    EXPECT_EQ(shell_escape(value), word);
  }
}

TEST(ShellEscape, every_byte_comes_back_from_the_shell) {
  for (const char byte : every_byte()) {
    EXPECT_EQ(round_trip(std::string(1, byte)), std::string(1, byte))
        << "byte " << static_cast<int>(static_cast<unsigned char>(byte));
  }
  EXPECT_EQ(round_trip(every_byte()), every_byte());
}

TEST(ShellEscape, hostile_text_comes_back_unchanged) {
  const std::vector<std::string> rows = {
      "",
      "'",
      "''''",
      "'; exit 7; '",
      "'\\''",
      "\\'",
      "\\",
      "a\\nb\\0c",
      "trailing\n\n",
      "\nleading",
      "\r\n",
      "$(exit 7)`exit 7`$HOME${HOME}",
      "-n",
      "--",
      "-e \\t",
      "%s%d%n%%",
      "!! !$ !1",
      "* ? [a-z] ~ {a,b}",
      "a;b&c|d>e<f#g",
      "  blanks\tin  it ",
      "\"double\"",
      "caf\xc3\xa9 \xff\xfe",
      "Content-Type: application/json",
  };
  for (const std::string& value : rows) {
    EXPECT_EQ(round_trip(value), value);
  }
}

TEST(ShellEscape, text_stays_one_argument_beside_others) {
  const std::string count = "sh -c 'printf %s $#' sh ";
  for (const std::string& value :
       {std::string(), std::string("a b"), std::string("a' 'b"), every_byte(), std::string("\n")}) {
    EXPECT_EQ(run_command(count + "x " + shell_escape(value) + " y").output, "3") << value;
  }
}

TEST(RunCommand, the_exit_status_is_the_commands_own) {
  const std::vector<std::pair<std::string, int>> rows = {
      {"true", 0},         {"exit 3", 3},
      {"exit 255", 255},   {"exit 3 | exit 4", 4},
      {"false | true", 0}, {"sh -c 'exit 128'", 128}};
  for (const auto& [command, expected] : rows) {
    const CommandOutput result = run_command(command);
    EXPECT_EQ(result.exit_code, expected) << command;
    EXPECT_EQ(result.output, "") << command;
    EXPECT_EQ(result.error, "") << command;
  }
}

TEST(RunCommand, a_shell_killed_by_a_signal_gives_the_raw_status) {
  EXPECT_EQ(run_command("kill -9 $$").exit_code, SIGKILL);
  EXPECT_EQ(run_command("kill -15 $$").exit_code, SIGTERM);
}

TEST(RunCommand, output_before_a_failure_is_kept) {
  const CommandOutput result = run_command("printf before; kill -9 $$");
  EXPECT_EQ(result.exit_code, SIGKILL);
  EXPECT_EQ(result.output, "before");
}

TEST(RunCommand, errors_of_the_last_command_are_collected_and_nothing_is_trimmed) {
  EXPECT_EQ(run_command("sh -c \"printf ' wrong \\n\\n' >&2\"").output, " wrong \n\n");
  EXPECT_EQ(run_command("sh -c 'echo one; echo two >&2; echo three'").output, "one\ntwo\nthree\n");
  EXPECT_EQ(run_command("printf quiet 2>/dev/null").output, "quiet");
}

TEST(RunCommand, a_missing_tool_gives_127_and_the_shells_message) {
  const CommandOutput result = run_command("no-such-tool-anywhere --flag");
  EXPECT_EQ(result.exit_code, 127);
  EXPECT_NE(result.output.find("no-such-tool-anywhere"), std::string::npos) << result.output;
  EXPECT_EQ(result.error, "");
}

TEST(RunCommand, output_of_any_length_arrives_whole) {
  const TempFolder folder;
  for (const std::size_t length : {1UL, 4094UL, 4095UL, 4096UL, 4097UL, 8190UL, 8192UL, 300000UL}) {
    const std::string line(length, 'x');
    for (const std::string& text : {line, line + "\n", line + "\n\n" + line + "\ny"}) {
      write_file(folder / "text", text);
      const std::string output = run_command("cat " + folder.path() + "/text").output;
      // Not the texts themselves, which a failure would print.
      EXPECT_TRUE(output == text) << length << " of " << text.size() << ": " << output.size();
    }
  }
}

TEST(RunCommand, lines_of_every_length_arrive_in_order) {
  std::string text;
  for (std::size_t length = 0; length < 9000; length += 7) {
    text += std::to_string(length) + std::string(length, ' ') + "\n";
  }
  const TempFolder folder;
  write_file(folder / "text", text);
  EXPECT_TRUE(run_command("cat " + folder.path() + "/text").output == text);
}

TEST(RunCommand, a_nul_loses_the_rest_of_its_line_and_no_other) {
  const std::vector<std::pair<std::string, std::string>> rows = {
      {"a\\000b\\nc\\n", "ac\n"}, {"\\000\\n\\nx", "\nx"}, {"a\\nb\\000", "a\nb"}, {"\\000", ""}};
  for (const auto& [format, expected] : rows) {
    EXPECT_EQ(run_command("printf '" + format + "'").output, expected) << format;
  }
}

TEST(RunCommand, a_line_too_long_for_the_system_is_a_failure_and_not_an_end) {
  const CommandOutput result = run_command(": " + std::string(32UL << 20, 'x'));
  EXPECT_EQ(result.exit_code, -1);
  EXPECT_EQ(result.error, "popen failed");
  EXPECT_EQ(result.output, "");
}

TEST(RunWithInput, the_pipeline_reads_exactly_the_text) {
  for (const std::string& text :
       {std::string(), every_byte(), std::string("%s\\n"), std::string("-n"), std::string("\n")}) {
    EXPECT_EQ(run_with_input(text, "cat").output, text);
  }
  EXPECT_EQ(run_with_input("abc", "cat >/dev/null; exit 5").exit_code, 5);
}

}  // namespace
}  // namespace morvane::connector
