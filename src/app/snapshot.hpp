#pragma once

#include <string>
#include <vector>

#include "app/connector_health.hpp"
#include "exchanges/exchange_registry.hpp"
#include "state/device_identity.hpp"

namespace morvane::connector {

// What the connector knows of itself without asking anyone.
struct ConnectorSnapshot {
  DeviceIdentity identity;
  ConnectorHealth health = ConnectorHealth::starting;
  bool relay_connected = false;  // a relay URL is configured
  std::string vault_backend;
  std::vector<ExchangeConnection> exchanges;
};

}  // namespace morvane::connector
