#include "app/snapshot.hpp"

#include "net/text.hpp"

namespace morvane::connector {

std::string to_string(ConnectorHealth health) {
  return name_of(static_cast<std::size_t>(health),
                 {"starting", "pairing_required", "ready", "degraded", "error"});
}

}  // namespace morvane::connector
