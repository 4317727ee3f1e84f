#include "net/tool_streams.hpp"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <utility>

namespace morvane::connector {
namespace {

// Whether this is what dash says of a tool that a signal killed.
bool is_signal(std::string_view line) {
  constexpr std::string_view core = " (core dumped)";
  if (line.ends_with(core)) {
    line.remove_suffix(core.size());
  }
  for (int number = 1; number < 32; ++number) {
    if (line == ::strsignal(number)) {
      return true;
    }
  }
  return false;
}

// `said` without the shell's words about a killed tool. Those of bash 3.2 are the last, and the
// exit code is above 128: "sh: line 1: 42 Killed: 9 <the line>", however many lines that has.
std::string words_of_tools(std::string_view said, std::int32_t exit_code) {
  std::string words;
  while (!said.empty()) {
    const std::string_view line = said.substr(0, said.find('\n'));
    if (exit_code > 128 && line.starts_with("sh:")) {
      break;
    }
    const std::size_t length = std::min(line.size() + 1, said.size());
    if (!is_signal(line)) {
      words += said.substr(0, length);
    }
    said.remove_prefix(length);
  }
  return words;
}

// What fgets would read of `bytes` in pieces of 4095: of a piece, what stands before its first NUL.
std::string as_read_by_fgets(std::string bytes) {
  if (bytes.find('\0') == std::string::npos) {
    return bytes;
  }
  constexpr std::size_t longest = 4095;
  std::string text;
  for (std::string_view rest = bytes; !rest.empty();) {
    const std::string_view piece = rest.substr(0, std::min(rest.find('\n'), longest - 1) + 1);
    text += piece.substr(0, piece.find('\0'));
    rest.remove_prefix(piece.size());
  }
  return text;
}

}  // namespace

ErrorPipe::ErrorPipe() : own_(::fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1)) {
  std::array<int, 2> ends{};
  if (own_ < 0 || ::pipe(ends.data()) != 0) {
    return;  // then standard error stays what it is
  }
  read_end_ = ends[0];
  ::fcntl(read_end_, F_SETFD, FD_CLOEXEC);
  ::fcntl(read_end_, F_SETFL, O_NONBLOCK);
  ::dup2(ends[1], STDERR_FILENO);
  ::close(ends[1]);
}

ErrorPipe::~ErrorPipe() {
  ::close(read_end_);
  ::close(own_);
}

void ErrorPipe::give_back() const { ::dup2(own_, STDERR_FILENO); }

bool ErrorPipe::take() {
  std::array<char, 4096> piece;
  ssize_t count = 0;
  while ((count = ::read(read_end_, piece.data(), piece.size())) > 0) {
    said_.append(piece.data(), static_cast<std::size_t>(count));
  }
  return count < 0 && (errno == EAGAIN || errno == EINTR);
}

void ErrorPipe::pass_on(std::int32_t exit_code) {
  const std::string words = words_of_tools(said_, exit_code);
  // That nobody reads them must not end the run.
  const auto handler = std::signal(SIGPIPE, SIG_IGN);
  std::fwrite(words.data(), 1, words.size(), stderr);
  std::signal(SIGPIPE, handler);
}

bool collect(int answer, ErrorPipe& errors, std::string& output) {
  std::array<pollfd, 2> ends = {{{answer, POLLIN, 0}, {errors.read_end(), POLLIN, 0}}};
  std::array<char, 65536> piece;
  while (true) {
    ends[0].revents = ends[1].revents = 0;
    if (::poll(ends.data(), ends.size(), -1) < 0 && errno != EINTR) {
      return false;
    }
    if (ends[1].revents != 0 && !errors.take()) {
      ends[1].fd = -1;
    }
    if (ends[0].revents == 0) {
      continue;
    }
    const ssize_t count = ::read(answer, piece.data(), piece.size());
    if (count > 0) {
      output.append(piece.data(), static_cast<std::size_t>(count));
    } else if (count == 0 || errno != EINTR) {
      output = as_read_by_fgets(std::move(output));
      return count == 0;
    }
  }
}

}  // namespace morvane::connector
