#include "app/snapshot.hpp"

namespace morvane::connector {

std::string to_string(ConnectorHealth health) {
  switch (health) {
    case ConnectorHealth::starting: return "starting";
    case ConnectorHealth::pairing_required: return "pairing_required";
    case ConnectorHealth::ready: return "ready";
    case ConnectorHealth::degraded: return "degraded";
    case ConnectorHealth::error: return "error";
  }
  return "unknown";
}

}  // namespace morvane::connector
