#pragma once

#include <cstdint>
#include <string>

namespace morvane::connector {

// A pipe in the place of this process's standard error, for what is started while it is there.
class ErrorPipe {
 public:
  ErrorPipe();
  ~ErrorPipe();
  ErrorPipe(const ErrorPipe&) = delete;
  ErrorPipe& operator=(const ErrorPipe&) = delete;

  // Standard error is this process's own again.
  void give_back() const;

  // Takes what has come, without waiting; false when no more will come.
  bool take();

  // Passes on, to this process's own standard error, what the tools of a line with that exit code
  // (as CommandOutput has it) said. What the shell itself says of a tool that a signal killed is
  // dropped: it may be the whole line, secrets and all.
  void pass_on(std::int32_t exit_code);

  int read_end() const { return read_end_; }

 private:
  int own_;
  int read_end_ = -1;
  std::string said_;
};

// Appends to `output` all that comes from the descriptor `answer`, and takes what comes by `errors`
// meanwhile. The text is what fgets would read in pieces of 4095 bytes: of a piece, what stands
// before its first NUL. False when reading broke off.
bool collect(int answer, ErrorPipe& errors, std::string& output);

}  // namespace morvane::connector
