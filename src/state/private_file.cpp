#include "state/private_file.hpp"

#include <sys/stat.h>

#include <filesystem>
#include <sstream>
#include <system_error>

namespace morvane::connector {
namespace {

namespace fs = std::filesystem;

// While one lives, new files and directories carry no rights for group and others.
class OwnerOnlyUmask {
 public:
  OwnerOnlyUmask() = default;
  ~OwnerOnlyUmask() { ::umask(before_); }
  OwnerOnlyUmask(const OwnerOnlyUmask&) = delete;
  OwnerOnlyUmask& operator=(const OwnerOnlyUmask&) = delete;
  OwnerOnlyUmask(OwnerOnlyUmask&&) = delete;
  OwnerOnlyUmask& operator=(OwnerOnlyUmask&&) = delete;

 private:
  mode_t before_ = ::umask(S_IRWXG | S_IRWXO);
};

}  // namespace

void create_private_directories(const std::string& path) {
  const OwnerOnlyUmask owner_only;
  fs::create_directories(path);
}

void make_private(const std::string& path) {
  std::error_code ignored;
  // A name that leads to a device, say, is not ours to narrow.
  if (!fs::is_regular_file(path, ignored) && !fs::is_directory(path, ignored)) {
    return;
  }
  fs::permissions(path, fs::perms::group_all | fs::perms::others_all, fs::perm_options::remove,
                  ignored);
}

std::ofstream open_private(const std::string& path, std::ios::openmode mode) {
  const OwnerOnlyUmask owner_only;
  make_private(path);
  return std::ofstream(path, std::ios::out | std::ios::binary | mode);
}

std::optional<std::string> read_file(const std::string& path) {
  const std::ifstream file(path, std::ios::binary);
  std::error_code ignored;
  // A directory opens like a file and only fails to be read.
  if (!file.is_open() || fs::is_directory(path, ignored)) {
    return std::nullopt;
  }
  std::ostringstream content;
  content << file.rdbuf();
  return std::move(content).str();
}

}  // namespace morvane::connector
