#pragma once

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

// What several tests need of the machine: a folder of their own, another environment for a while,
// and tools that answer what the test says.
namespace morvane::connector::test {

inline void write_file(const std::string& path, const std::string& content) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  if (!(file << content << std::flush)) throw std::runtime_error("cannot write " + path);
}

// The content of `path`; "(no file)" when it cannot be opened.
inline std::string file_text(const std::string& path) {
  const std::ifstream file(path, std::ios::binary);
  std::ostringstream content;
  content << file.rdbuf();
  return file.is_open() ? content.str() : "(no file)";
}

// The permission bits of `path`, -1 when there is none.
inline int mode_of(const std::string& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0 ? static_cast<int>(status.st_mode & 07777) : -1;
}

// An empty folder with no blank or quote in its path, gone at the end.
class TempFolder {
 public:
  TempFolder() {
    if (::mkdtemp(path_.data()) == nullptr) throw std::runtime_error("cannot make a folder");
  }
  ~TempFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TempFolder(const TempFolder&) = delete;

  const std::string& path() const { return path_; }
  std::string operator/(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_ = std::filesystem::temp_directory_path() / "connector-XXXXXX";
};

// One environment variable with another value.
class Environment {
 public:
  Environment(std::string name, const std::string& value) : name_(std::move(name)) {
    if (const char* before = std::getenv(name_.c_str())) before_ = before;
    ::setenv(name_.c_str(), value.c_str(), 1);
  }
  ~Environment() {
    before_ ? ::setenv(name_.c_str(), before_->c_str(), 1) : ::unsetenv(name_.c_str());
  }
  Environment(const Environment&) = delete;

 private:
  std::string name_;
  std::optional<std::string> before_;
};

// A folder at the front of PATH, for tools that answer in place of the real ones.
class Tools {
 public:
  // `others`: the folders behind it, by default those of the caller's PATH.
  explicit Tools(const std::string& others = std::string(":") + std::getenv("PATH"))
      : path_("PATH", folder_.path() + others) {}

  // A shell script of this name, in which $here is this folder.
  void add(const std::string& name, const std::string& body) const {
    write_file(folder_ / name, "#!/bin/sh\nhere=" + folder_.path() + "\n" + body + "\n");
    ::chmod((folder_ / name).c_str(), 0700);
  }

  const TempFolder& folder() const { return folder_; }

 private:
  TempFolder folder_;
  Environment path_;
};

// The pieces of `text` between the separators.
inline std::vector<std::string> split(const std::string& text, char separator) {
  std::istringstream stream(text);
  std::vector<std::string> pieces;
  for (std::string piece; std::getline(stream, piece, separator);) pieces.push_back(piece);
  return pieces;
}

// Bytes 1..255, each once: all that a command line can carry.
inline std::string every_byte() {
  std::string bytes;
  for (int byte = 1; byte < 256; ++byte) bytes += static_cast<char>(byte);
  return bytes;
}

}  // namespace morvane::connector::test
