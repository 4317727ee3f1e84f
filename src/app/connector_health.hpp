#pragma once

#include <string>

namespace morvane::connector {

// The connector as a whole. `degraded` and `error` are never set by this release.
enum class ConnectorHealth { starting, pairing_required, ready, degraded, error };

// The value's own name; "unknown" for anything outside the enumeration.
std::string to_string(ConnectorHealth health);

}  // namespace morvane::connector
