#include "net/shell.hpp"

#include <array>
#include <cstdio>

namespace morvane::connector {

std::string shell_escape(const std::string& value) {
  std::string word = "'";
  for (const char byte : value) {
    if (byte == '\'') {
      word += "'\\''";
    } else {
      word += byte;
    }
  }
  return word += '\'';
}

CommandOutput run_command(const std::string& command) {
  CommandOutput result;
  const std::string line = command + " 2>&1";
  std::FILE* pipe = popen(line.c_str(), "r");
  if (pipe == nullptr) {
    result.exit_code = -1;
    result.error = "popen failed";
    return result;
  }
  std::array<char, 4096> chunk{};
  while (std::fgets(chunk.data(), static_cast<int>(chunk.size()), pipe) != nullptr) {
    result.output += chunk.data();
  }
  const int status = pclose(pipe);
  const bool exited = (status & 0x7f) == 0;
  result.exit_code = exited ? (status >> 8) & 0xff : status;
  return result;
}

CommandOutput run_with_input(const std::string& text, const std::string& pipeline) {
  // printf %s adds no newline and reads no escapes in the text.
  return run_command("printf %s " + shell_escape(text) + " | " + pipeline);
}

}  // namespace morvane::connector
