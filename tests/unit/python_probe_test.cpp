#include "exchanges/python_probe.hpp"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "support.hpp"

namespace morvane::connector {
namespace {

using test::every_byte;
using test::Tools;

TEST(PyStringLiteral, five_characters_are_escaped) {
  EXPECT_EQ(py_string_literal(""), "''");
  EXPECT_EQ(py_string_literal("a\tb\nc\rd'e\\f"), R"('a\tb\nc\rd\'e\\f')");
  EXPECT_EQ(py_string_literal("\"$x`\x7f\xc3\xa9"), "'\"$x`\x7f\xc3\xa9'");
}

// The hex of what python3 reads each literal as.
std::vector<std::string> read_by_python(const std::vector<std::string>& values) {
  std::string script = "for value in (";
  for (const std::string& value : values) {
    script += py_string_literal(value) + ",";
  }
  std::istringstream output(run_python(script + "):\n    print('.' + value.encode().hex())\n"));
  std::vector<std::string> lines;
  for (std::string line; std::getline(output, line);) {
    lines.push_back(line);
  }
  return lines;
}

std::string hex(const std::string& bytes) {
  std::string text = ".";
  for (const char byte : bytes) {
    const auto value = static_cast<unsigned char>(byte);
    text += {"0123456789abcdef"[value / 16], "0123456789abcdef"[value % 16]};
  }
  return text;
}

TEST(PyStringLiteral, every_text_reads_back_as_itself) {
  std::vector<std::string> values = {"",
                                     "'",
                                     "''",
                                     "'''",
                                     "\\",
                                     "\\\\",
                                     "\\'",
                                     "\\n",
                                     "a\\",
                                     "\\x41\\u0041\\N{BULLET}",
                                     "{value}%s",
                                     "#",
                                     "'+exit()+'",
                                     "\xc3\xa9 \xe2\x82\xac \xf0\x9f\x94\x91",
                                     "line\nline\r\n",
                                     every_byte().substr(0, 127)};
  for (const char byte : every_byte().substr(0, 127)) {  // above it, only UTF-8 is Python's text
    values.emplace_back(1, byte);
    values.push_back(std::string(1, byte) + "\\" + byte + "n'");
  }
  const std::vector<std::string> read = read_by_python(values);
  ASSERT_EQ(read.size(), values.size());
  for (std::size_t i = 0; i < values.size(); ++i) {
    EXPECT_EQ(read[i], hex(values[i])) << testing::PrintToString(values[i]);
  }
}

TEST(RunPython, what_was_printed_comes_back_trimmed) {
  EXPECT_EQ(run_python("print(' a\\n\\tb \\t\\r\\n')"), " a\n\tb");
  EXPECT_EQ(run_python("import sys\nprint(\"it's \" + str(6 * 7))\nsys.exit(0)"), "it's 42");
}

TEST(RunPython, a_failing_or_silent_script_gives_nothing) {
  for (const char* script : {"print('before')\nraise ValueError", "print(", "", "print()",
                             "print('before')\nraise SystemExit(3)"}) {
    EXPECT_EQ(run_python(script), "") << script;
  }
  const Tools no_tools("");
  EXPECT_EQ(run_python("print(1)"), "");
}

}  // namespace
}  // namespace morvane::connector
