#pragma once

#include <optional>
#include <string>

#include "state/device_identity.hpp"
#include "state/pairing_store.hpp"

namespace morvane::connector {

// What the relay's answers say, judged by substrings alone, and what becomes of identity and
// pairing then. Nothing here is written to a file.

// Meant: no JSON is parsed, so a blank after the colon is not recognised.
bool response_has_bind_state(const std::string& response, const std::string& state);

// The answer to a claim leaves the binding to the owner's signature.
bool is_claimed(const std::string& response);

// The relay knows nothing of this binding any more.
bool is_lost(const std::string& response);

// The text after the first "wallet":" up to the next quote.
std::optional<std::string> wallet_in(const std::string& response);

// A claim was made, and its wallet is not known yet.
bool has_pending_token_state(const PairingState& pairing);

void become_bound(DeviceIdentity& identity, PairingState& pairing);
void become_pending(DeviceIdentity& identity, PairingState& pairing);
void become_unbound(DeviceIdentity& identity, PairingState& pairing);

}  // namespace morvane::connector
