#pragma once

#include <string>
#include <utility>

#include "net/clock.hpp"
#include "state/private_file.hpp"

namespace morvane::connector {

// Owns the application root: the folder under which all local state lives.
class ConfigStore {
 public:
  // Creates `root` with all missing parents; throws std::filesystem::filesystem_error on failure.
  explicit ConfigStore(std::string root) : root_(std::move(root)) { own_folder(root_); }

  std::string app_root() const { return root_; }             // as it was passed; for who asks
  std::string now_iso8601() const { return iso8601_now(); }  // for who stamps a file

 private:
  std::string root_;
};

}  // namespace morvane::connector
