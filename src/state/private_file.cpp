#include "state/private_file.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <string_view>
#include <system_error>
#include <utility>

#include "state/state_files.hpp"

namespace morvane::connector {
namespace {

namespace fs = std::filesystem;

void narrow(const fs::path& path) {
  constexpr fs::perms strangers = fs::perms::group_all | fs::perms::others_all;
  std::error_code ignored;
  const fs::file_status status = fs::symlink_status(path, ignored);
  if (!fs::is_symlink(status) && (status.permissions() & strangers) != fs::perms::none) {
    fs::permissions(path, strangers, fs::perm_options::remove, ignored);
  }
}

// Whether a run that is gone left this file unfinished.
bool is_abandoned(const fs::path& path) {
  constexpr std::string_view start = state_files::unfinished;
  const std::string name = "/" + path.filename().string();
  return name.starts_with(start) &&
         ::kill(static_cast<pid_t>(std::atol(name.c_str() + start.size())), 0) != 0 &&
         errno == ESRCH;
}

// An open regular file; false where there is none.
class OpenFile {
 public:
  // O_NONBLOCK keeps a pipe in the file's place from holding up the run.
  OpenFile(const std::string& path, int flags)
      : descriptor_(
            ::open(path.c_str(), flags | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, S_IRUSR | S_IWUSR)),
        is_absent_(descriptor_ < 0 && errno == ENOENT) {
    struct stat status {};
    is_file_ = ::fstat(descriptor_, &status) == 0 && S_ISREG(status.st_mode);
  }
  ~OpenFile() { ::close(descriptor_); }
  OpenFile(const OpenFile&) = delete;

  explicit operator bool() const { return is_file_; }
  bool is_absent() const { return is_absent_; }

  // Nothing when it cannot be read. In one reading, unless the file is large: between two of them
  // it may have grown.
  std::optional<std::string> content() const {
    std::string text;
    std::array<char, 65536> piece;
    ssize_t count = 0;
    do {
      count = ::pread(descriptor_, piece.data(), piece.size(), static_cast<off_t>(text.size()));
      if (count < 0) {
        return std::nullopt;
      }
      text.append(piece.data(), static_cast<std::size_t>(count));
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
    cut(written ? text.size() : before.size());
    return written;
  }

  // All of `text` or nothing of it; nothing where there is no file.
  void append(const std::string& text) const {
    const ssize_t count = is_file_ ? ::write(descriptor_, text.data(), text.size()) : 0;
    if (count > 0 && count < static_cast<ssize_t>(text.size())) {
      cut(static_cast<std::size_t>(::lseek(descriptor_, 0, SEEK_CUR) - count));
    }
  }

 private:
  bool write_at(std::size_t offset, const std::string& text) const {
    return ::pwrite(descriptor_, text.data(), text.size(), static_cast<off_t>(offset)) ==
           static_cast<ssize_t>(text.size());
  }

  // Where this fails, empty lines stay behind the text: no harm.
  void cut(std::size_t length) const {
    [[maybe_unused]] const int failed = ::ftruncate(descriptor_, static_cast<off_t>(length));
  }

  int descriptor_;
  bool is_absent_;
  bool is_file_ = false;
};

Kept keep(const OpenFile& file, const std::string& text) {
  std::optional<std::string> before = file ? file.content() : std::nullopt;
  if (!before) {
    return Kept::refused;
  }
  // A run that writes at the same moment may be cut short by this one, or cut this one short.
  for (int tries = 0; tries < 10 && before && before != text; ++tries) {
    if (!file.replace(*before, text)) {
      return Kept::cut_short;
    }
    before = file.content();
  }
  return Kept::whole;
}

}  // namespace

void own_folder(const std::string& path) {
  fs::create_directories(path);
  narrow(path);
  std::error_code ignored;
  const bool is_link = fs::is_symlink(path, ignored);
  for (const fs::path& file : files_in(path)) {
    if (is_abandoned(file)) {
      fs::remove(file, ignored);
    } else if (!is_link) {
      narrow(file);
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

std::vector<fs::path> files_in(const std::string& folder) {
  std::vector<fs::path> files;
  std::error_code failed;
  std::error_code ignored;
  for (fs::directory_iterator at(folder, failed), end; !failed && at != end; at.increment(failed)) {
    if (at->is_regular_file(ignored)) {
      files.push_back(at->path());
    }
  }
  return files;
}

std::string unfinished_beside(const std::string& path) {
  return fs::path(path).parent_path().string() + state_files::unfinished +
         std::to_string(::getpid());
}

std::optional<std::string> StateFile::read() const {
  const OpenFile file(path_, O_RDONLY);
  std::optional<std::string> text = file ? file.content() : std::nullopt;
  // Another run may be writing: what two readings agree on is a text that stood there in whole.
  for (int tries = 0; text && tries < 100; ++tries) {
    std::optional<std::string> again = file.content();
    if (again == text) {
      break;
    }
    text = std::move(again);
  }
  if (!text && !file.is_absent()) {
    unreadable_ = true;
    return known_;
  }
  return known_ = text;
}

Kept StateFile::create(const std::string& text) const {
  const std::string unfinished = unfinished_beside(path_);
  ::unlink(unfinished.c_str());  // of an earlier process with this one's number
  Kept kept = keep(OpenFile(unfinished, O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW), text);
  if (kept == Kept::whole && ::link(unfinished.c_str(), path_.c_str()) != 0) {
    kept = Kept::refused;
  }
  ::unlink(unfinished.c_str());
  return kept;
}

Kept StateFile::replace(const std::string& text) const {
  const Kept kept = unreadable_ ? Kept::refused : put(text);
  if (kept == Kept::whole) {
    known_ = text;
  }
  return kept;
}

Kept StateFile::put(const std::string& text) const {
  if (const OpenFile file(path_, O_RDWR); !file.is_absent()) {
    return keep(file, text);
  }
  if (const Kept created = create(text); created != Kept::refused) {
    return created;
  }
  // Another run was first, or a link leads nowhere yet, or the file system has no links.
  const OpenFile file(path_, O_RDWR | O_CREAT);
  const Kept kept = keep(file, text);
  if (kept == Kept::cut_short && file.content() == "") {
    std::error_code ignored;
    fs::remove(fs::canonical(path_, ignored), ignored);
  }
  return kept;
}

void StateFile::append_line(const std::string& line) const {
  if (create(line + '\n') == Kept::refused) {
    OpenFile(path_, O_WRONLY | O_CREAT | O_APPEND).append(line + '\n');
  }
}

}  // namespace morvane::connector
