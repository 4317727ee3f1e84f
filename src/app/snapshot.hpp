#pragma once

#include <string>
#include <vector>

#include "exchanges/validation.hpp"
#include "state/device_identity.hpp"

namespace morvane::connector {

// The connector as a whole. `degraded` and `error` are never set by this release.
enum class ConnectorHealth { starting, pairing_required, ready, degraded, error };

// The value's own name; "unknown" for anything outside the enumeration.
inline std::string to_string(ConnectorHealth health) {
  switch (health) {
    case ConnectorHealth::starting: return "starting";
    case ConnectorHealth::pairing_required: return "pairing_required";
    case ConnectorHealth::ready: return "ready";
    case ConnectorHealth::degraded: return "degraded";
    case ConnectorHealth::error: return "error";
  }
  return "unknown";
}

// What the connector knows of itself without asking anyone.
struct ConnectorSnapshot {
  DeviceIdentity identity;
  ConnectorHealth health = ConnectorHealth::starting;
  bool relay_connected = false;  // a relay URL is configured
  std::string vault_backend;
  std::vector<ExchangeConnection> exchanges;
};

}  // namespace morvane::connector
