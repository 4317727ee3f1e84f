#include "net/shell.hpp"

#include <cstdio>
#include <utility>

#include "net/tool_streams.hpp"

namespace morvane::connector {

ShellLine operator+(ShellLine left, const ShellLine& right) {
  left.text_ += right.text_;
  return left;
}

ShellLine operator+(ShellLine left, Literal right) { return std::move(left) + ShellLine(right); }

ShellLine operator+(Literal left, const ShellLine& right) { return ShellLine(left) + right; }

std::string shell_escape(const std::string& value) {
  std::string word = "'";
  for (const char byte : value) {
    if (byte == '\'') {
      word += "'\\''";
    } else {
      word += byte;
    }
  }
  word += '\'';
  return word;
}

ShellLine shell_word(const std::string& value) {
  ShellLine word;
  word.text_ = shell_escape(value);
  return word;
}

CommandOutput run_command(const ShellLine& line) {
  CommandOutput result;
  ErrorPipe errors;
  std::FILE* pipe = popen((line + " 2>&1").text().c_str(), "r");
  errors.give_back();
  if (pipe == nullptr) {
    result.exit_code = -1;
    result.error = "popen failed";
    return result;
  }
  const bool whole = collect(fileno(pipe), errors, result.output);
  const int status = pclose(pipe);
  const bool exited = (status & 0x7f) == 0;
  result.exit_code = exited ? (status >> 8) & 0xff : status;
  errors.take();
  errors.pass_on(result.exit_code);
  if (!whole) {
    result.exit_code = -1;
  }
  return result;
}

CommandOutput run_with_input(const std::string& text, const ShellLine& pipeline) {
  // printf %s adds no newline and reads no escapes in the text.
  return run_command("printf %s " + shell_word(text) + " | " + pipeline);
}

}  // namespace morvane::connector
