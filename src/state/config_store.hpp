#pragma once

#include <string>

namespace morvane::connector {

// Owns the application root: the folder under which all local state lives.
class ConfigStore {
 public:
  // Creates `root` with all missing parents; throws std::filesystem::filesystem_error on failure.
  explicit ConfigStore(std::string root);

  // The root as it was passed. Unused.
  std::string app_root() const;

  // Now, in UTC, to the second: 2025-03-07T09:05:03Z. Unused.
  std::string now_iso8601() const;

 private:
  std::string root_;
};

}  // namespace morvane::connector
