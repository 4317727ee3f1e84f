#pragma once

#include <cstdint>
#include <string>

namespace morvane::connector {

// What one command line left behind.
struct CommandOutput {
  // The exit status 0..255 of a line that ended by itself; the raw wait status of a shell that a
  // signal killed (9 for SIGKILL, not 137); -1 when no shell could be started.
  std::int32_t exit_code = 0;
  // Standard output and the last command's standard error, in order of arrival, untrimmed. Bytes
  // between a NUL and the end of its line are lost: every tool run here prints text.
  std::string output;
  // "popen failed" when no shell could be started, else empty.
  std::string error;
};

// `value` as exactly one word of a POSIX shell, whatever bytes it holds (a NUL cannot occur in an
// argument). This is the security boundary of the program: text goes into a command line as a
// literal or through here.
std::string shell_escape(const std::string& value);

// Runs `command` with the system shell, waits for it and collects what it printed. " 2>&1" is
// appended, so of a pipeline only the last command's errors are collected. Never throws for a
// failing command; there is no time limit beyond the one the tool was given.
CommandOutput run_command(const std::string& command);

// Runs `pipeline`, a literal command line, with exactly the bytes of `text` on its standard input.
CommandOutput run_with_input(const std::string& text, const std::string& pipeline);

}  // namespace morvane::connector
