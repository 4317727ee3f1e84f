#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace morvane::connector {

// What one command line left behind.
struct CommandOutput {
  // The exit status 0..255 of a line that ended by itself; the raw wait status of a shell that a
  // signal killed (9 for SIGKILL, not 137); -1 when no shell could be started, or when reading its
  // output broke off.
  std::int32_t exit_code = 0;
  // Standard output and the last command's standard error, in order of arrival, untrimmed. Bytes
  // between a NUL and the end of its line are lost: every tool run here prints text.
  std::string output;
  // "popen failed" when no shell could be started, else empty.
  std::string error;
};

// A text that stands in the source. Nothing that is only known at run time compiles as one.
class Literal {
 public:
  consteval Literal() = default;
  consteval Literal(const char* text) : text_(text) {}

  constexpr std::string_view text() const { return text_; }

 private:
  std::string_view text_;
};

// A command line for the system's shell. This type is the security boundary of the program: a line
// is made of literals and of quoted words, joined with "+", and of nothing else.
class ShellLine {
 public:
  ShellLine() = default;
  explicit ShellLine(Literal literal) : text_(literal.text()) {}

  const std::string& text() const { return text_; }

  friend ShellLine shell_word(const std::string& value);
  friend ShellLine operator+(ShellLine left, const ShellLine& right);
  friend ShellLine operator+(ShellLine left, Literal right);
  friend ShellLine operator+(Literal left, const ShellLine& right);

 private:
  std::string text_;
};

// `value` as exactly one word of a POSIX shell, whatever bytes it holds (a NUL cannot occur in an
// argument).
std::string shell_escape(const std::string& value);
ShellLine shell_word(const std::string& value);

// Runs `line`, waits for it and collects what it printed. " 2>&1" is appended, so of a pipeline
// only the last command's errors are collected; the others' come out on standard error when the
// line has ended. What the shell says of a tool that a signal killed is dropped. Never throws for a
// failing command; there is no time limit beyond the one the tool was given.
CommandOutput run_command(const ShellLine& line);

// Runs `pipeline` with exactly the bytes of `text` on its standard input.
CommandOutput run_with_input(const std::string& text, const ShellLine& pipeline);

}  // namespace morvane::connector
