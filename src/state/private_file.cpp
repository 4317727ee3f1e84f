#include "state/private_file.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <filesystem>
#include <system_error>
#include <utility>

namespace morvane::connector {
namespace {

namespace fs = std::filesystem;

void narrow(const fs::path& path) {
  constexpr fs::perms strangers = fs::perms::group_all | fs::perms::others_all;
  std::error_code ignored;
  if ((fs::status(path, ignored).permissions() & strangers) != fs::perms::none) {
    fs::permissions(path, strangers, fs::perm_options::remove, ignored);
  }
}

// An open regular file; false where there is none.
class OpenFile {
 public:
  // O_NONBLOCK keeps a pipe in the file's place from holding up the run.
  OpenFile(const std::string& path, int flags)
      : descriptor_(
            ::open(path.c_str(), flags | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, S_IRUSR | S_IWUSR)) {
    is_file_ = ::fstat(descriptor_, &status_) == 0 && S_ISREG(status_.st_mode);
  }
  ~OpenFile() { ::close(descriptor_); }
  OpenFile(const OpenFile&) = delete;

  explicit operator bool() const { return is_file_; }

  // In one reading, unless the file is large: between two of them it may have grown.
  std::string content() const {
    std::string text;
    std::array<char, 65536> piece;
    ssize_t count = 0;
    do {
      count = ::pread(descriptor_, piece.data(), piece.size(), static_cast<off_t>(text.size()));
      text.append(piece.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    } while (count == static_cast<ssize_t>(piece.size()));
    return text;
  }

  // Both texts are made equally long by line feeds first, so that one write exchanges them and no
  // reader meets the head of the new one or the tail of the old. False when the disk refused.
  bool replace(const std::string& before, const std::string& text) const {
    const std::size_t length = std::max(before.size(), text.size());
    const bool written =
        (before.empty() || write_at(before.size(), std::string(length - before.size(), '\n'))) &&
        write_at(0, text + std::string(length - text.size(), '\n'));
    if (!written) {
      write_at(0, before);
    }
    const std::size_t kept = written ? text.size() : before.size();
    return ::ftruncate(descriptor_, static_cast<off_t>(kept)) == 0 && written;
  }

  void append(const std::string& text) const {
    [[maybe_unused]] const ssize_t taken = ::write(descriptor_, text.data(), text.size());
  }

 private:
  bool write_at(std::size_t offset, const std::string& text) const {
    return ::pwrite(descriptor_, text.data(), text.size(), static_cast<off_t>(offset)) ==
           static_cast<ssize_t>(text.size());
  }

  int descriptor_;
  struct stat status_ {};
  bool is_file_ = false;
};

}  // namespace

void own_folder(const std::string& path) {
  fs::create_directories(path);
  narrow(path);
  std::error_code ignored;
  for (const fs::directory_entry& entry : fs::directory_iterator(path, ignored)) {
    if (entry.is_regular_file(ignored)) {
      narrow(entry.path());
    }
  }
}

void create_among_strangers(const std::string& path) {
  fs::create_directories(path);
  struct stat status {};
  if (::lstat(path.c_str(), &status) != 0 || !S_ISDIR(status.st_mode) ||
      status.st_uid != ::geteuid()) {
    throw fs::filesystem_error("not a folder of one's own", path,
                               std::make_error_code(std::errc::permission_denied));
  }
}

std::optional<std::string> read_file(const std::string& path) {
  const OpenFile file(path, O_RDONLY);
  if (!file) {
    return std::nullopt;
  }
  // Another run may be writing: what two readings agree on is a text that stood there in whole.
  std::string text = file.content();
  for (int tries = 0; tries < 100; ++tries) {
    std::string again = file.content();
    if (again == text) {
      break;
    }
    text = std::move(again);
  }
  return text;
}

bool replace_file(const std::string& path, const std::string& text) {
  const OpenFile file(path, O_RDWR | O_CREAT);
  if (!file) {
    return false;
  }
  narrow(path);
  // A run that writes at the same moment may be cut short by this one, or cut this one short.
  for (int tries = 0; tries < 10; ++tries) {
    const std::string before = file.content();
    if (before == text || !file.replace(before, text)) {
      break;
    }
  }
  return true;
}

void append_line(const std::string& path, const std::string& line) {
  const OpenFile file(path, O_WRONLY | O_CREAT | O_APPEND);
  if (file) {
    narrow(path);
    file.append(line + '\n');
  }
}

}  // namespace morvane::connector
