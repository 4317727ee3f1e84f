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
#include <vector>

// What several tests need of the machine: a folder of their own, another environment for a while,
// and tools that answer what the test says.
namespace morvane::connector::test {

inline void write_file(const std::string& path, const std::string& content) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file << content;
  if (!file.flush()) {
    throw std::runtime_error("cannot write " + path);
  }
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
    std::string name = (std::filesystem::temp_directory_path() / "connector-XXXXXX").string();
    if (::mkdtemp(name.data()) == nullptr) {
      throw std::runtime_error("cannot make a temporary folder");
    }
    path_ = name;
  }
  ~TempFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;

  const std::string& path() const { return path_; }
  std::string operator/(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

// One environment variable with another value.
class Environment {
 public:
  Environment(std::string name, const std::string& value) : name_(std::move(name)) {
    if (const char* before = std::getenv(name_.c_str())) {
      before_ = before;
    }
    ::setenv(name_.c_str(), value.c_str(), 1);
  }
  ~Environment() {
    if (before_) {
      ::setenv(name_.c_str(), before_->c_str(), 1);
    } else {
      ::unsetenv(name_.c_str());
    }
  }
  Environment(const Environment&) = delete;
  Environment& operator=(const Environment&) = delete;

 private:
  std::string name_;
  std::optional<std::string> before_;
};

class Umask {
 public:
  explicit Umask(mode_t mask) : before_(::umask(mask)) {}
  ~Umask() { ::umask(before_); }
  Umask(const Umask&) = delete;
  Umask& operator=(const Umask&) = delete;

  static mode_t current() {
    const mode_t mask = ::umask(0);
    ::umask(mask);
    return mask;
  }

 private:
  mode_t before_;
};

// A folder at the front of PATH, for tools that answer in place of the real ones.
class Tools {
 public:
  // `others`: the folders behind it, by default those of the caller's PATH.
  Tools() : Tools(std::string(":") + std::getenv("PATH")) {}
  explicit Tools(const std::string& others) : path_("PATH", folder_.path() + others) {}

  // A shell script of this name. It notes its arguments for calls() and then runs `body`, in which
  // $here is this folder.
  void add(const std::string& name, const std::string& body) const {
    const std::string notes = folder_ / (name + ".calls");
    write_script(name, "here=" + folder_.path() + "\nprintf '%s\\0' \"$@\" >> " + notes +
                           "\nprintf '\\n\\0' >> " + notes + "\n" + body + "\n");
  }

  // The real tool, where PATH has nothing else.
  void link(const std::string& name, const std::string& target) const {
    std::filesystem::create_symlink(target, folder_ / name);
  }

  // The arguments of each run of the tool so far.
  std::vector<std::vector<std::string>> calls(const std::string& name) const {
    std::vector<std::vector<std::string>> calls(1);
    std::istringstream notes(file_text(folder_ / (name + ".calls")));
    for (std::string word; std::getline(notes, word, '\0') && !notes.eof();) {
      if (word == "\n") {
        calls.emplace_back();
      } else {
        calls.back().push_back(word);
      }
    }
    calls.pop_back();
    return calls;
  }

  const TempFolder& folder() const { return folder_; }

 private:
  void write_script(const std::string& name, const std::string& body) const {
    const std::string path = folder_ / name;
    write_file(path, "#!/bin/sh\n" + body);
    ::chmod(path.c_str(), 0700);
  }

  TempFolder folder_;
  Environment path_;
};

// Bytes 1..255, each once: all that a command line can carry.
inline std::string every_byte() {
  std::string bytes;
  for (int byte = 1; byte < 256; ++byte) {
    bytes += static_cast<char>(byte);
  }
  return bytes;
}

}  // namespace morvane::connector::test
