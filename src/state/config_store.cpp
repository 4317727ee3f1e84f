#include "state/config_store.hpp"

#include <utility>

#include "net/clock.hpp"
#include "state/private_file.hpp"

namespace morvane::connector {

ConfigStore::ConfigStore(std::string root) : root_(std::move(root)) { own_folder(root_); }

std::string ConfigStore::app_root() const { return root_; }

std::string ConfigStore::now_iso8601() const { return iso8601_now(); }

}  // namespace morvane::connector
