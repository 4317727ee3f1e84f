#include "relay/binding.hpp"

#include <string_view>

#include "net/text.hpp"

namespace morvane::connector {
namespace {

void clear_pending_pairing_state(PairingState& pairing) {
  pairing.latest_bind_token.clear();
  pairing.latest_claimed_connector_id.clear();
}

}  // namespace

bool response_has_bind_state(const std::string& response, const std::string& state) {
  return contains(response, R"("bindState":")" + state + "\"");
}

bool is_claimed(const std::string& response) {
  return contains(response, R"("status":"ok")") ||
         contains(response, R"("status":"pending_signature")") ||
         contains(response, R"("waiting_for_signature")");
}

bool is_lost(const std::string& response) {
  return contains(response, R"("reason":"session_missing")") ||
         response_has_bind_state(response, "token_missing");
}

std::optional<std::string> wallet_in(const std::string& response) {
  constexpr std::string_view marker = R"("wallet":")";
  const std::size_t at = response.find(marker);
  if (at == std::string::npos) {
    return std::nullopt;
  }
  const std::size_t begin = at + marker.size();
  const std::size_t end = response.find('"', begin);
  if (end == std::string::npos) {
    return std::nullopt;
  }
  return response.substr(begin, end - begin);
}

bool has_pending_token_state(const PairingState& pairing) {
  return !pairing.latest_bind_token.empty() || !pairing.latest_claimed_connector_id.empty();
}

void become_bound(DeviceIdentity& identity, PairingState& pairing) {
  pairing.pairing_status = pairing_status::bound;
  pairing.wallet_approval_confirmed = true;
  pairing.platform_terms_accepted = true;
  clear_pending_pairing_state(pairing);
  identity.owner_wallet = pairing.owner_wallet_address;
  identity.paired = true;
}

void become_pending(DeviceIdentity& identity, PairingState& pairing) {
  pairing.latest_claimed_connector_id = identity.device_id;
  pairing.pairing_status = pairing_status::pending_signature;
  pairing.wallet_approval_confirmed = false;
  identity.paired = false;
}

void become_unbound(DeviceIdentity& identity, PairingState& pairing) {
  pairing.owner_wallet_address.clear();
  pairing.pairing_status = pairing_status::unpaired;
  pairing.wallet_approval_confirmed = false;
  pairing.platform_terms_accepted = false;
  clear_pending_pairing_state(pairing);
  identity.owner_wallet.clear();
  identity.paired = false;
}

}  // namespace morvane::connector
