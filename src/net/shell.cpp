#include "net/shell.hpp"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdio>
#include <deque>
#include <string_view>

namespace morvane::connector {
namespace {

// Everything `pipe` gives, which may be tens of megabytes. It is gathered in pieces and each is
// freed as it is joined, so that the text never stands in memory twice.
std::string read_all(std::FILE* pipe) {
  constexpr std::size_t room_for_envelope = 256;
  std::deque<std::string> pieces;
  std::size_t total = 0;
  std::array<char, 4096> chunk{};
  while (std::fgets(chunk.data(), static_cast<int>(chunk.size()), pipe) != nullptr) {
    const std::string_view text = chunk.data();
    if (pieces.empty() || pieces.back().capacity() - pieces.back().size() < text.size()) {
      pieces.emplace_back().reserve(std::max(chunk.size(), total / 8));
    }
    pieces.back() += text;
    total += text.size();
  }
  std::string output;
  output.reserve(total + room_for_envelope);
  for (; !pieces.empty(); pieces.pop_front()) {
    output += pieces.front();
  }
  return output;
}

}  // namespace

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
  result.output = read_all(pipe);
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
