#include <optional>
#include <string_view>
#include <utility>

#include "app/connector_app.hpp"
#include "net/text.hpp"

// Binding the connector to the owner's platform account. The relay's answers are judged by
// substrings alone and passed on as they came.

namespace morvane::connector {
namespace {

// The text after the first "wallet":" up to the next quote.
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

std::string connector_label(const DeviceIdentity& identity) {
  return identity.device_label.empty() ? "macOS connector" : identity.device_label;
}

std::string bind_state_json(const std::string& state, const std::string& connector_id,
                            const std::string& pairing_status) {
  return R"({"status":"ok","bindState":")" + state + R"(","connectorId":")" + connector_id +
         R"(","pairingStatus":")" + pairing_status + "\"}";
}

}  // namespace

std::string ConnectorApp::server_health() const {
  const ServerStatus status = relay_.health(identity_.owner_wallet);
  // The relay's own JSON stands bare; our words need their quotes.
  const std::string message = status.reachable ? status.message : "\"" + status.message + "\"";
  return R"({"status":"ok","relay_url":")" + status.relay_url + R"(","reachable":)" +
         (status.reachable ? "true" : "false") + R"(,"health_status":")" + status.health_status +
         R"(","wallet_address":")" + status.wallet_address + R"(","message":)" + message + "}";
}

std::string ConnectorApp::bind_wallet_to_server() {
  if (pairing_.owner_wallet_address.empty()) {
    return R"({"status":"error","reason":"wallet_missing"})";
  }
  std::string response = relay_.bind_wallet(pairing_.owner_wallet_address, identity_.device_id);
  // Meant: bound whatever the relay said, even when it is down. The platform settles who owns the
  // wallet; binding_status() takes the mark back when the relay denies it.
  apply_bound_pairing_state();
  persist_pairing_state();
  return response;
}

std::string ConnectorApp::claim_bind_token(const std::string& token) {
  if (token.empty()) {
    return R"({"status":"error","reason":"token_missing"})";
  }
  std::string response = relay_.claim_token(token, identity_.device_id, connector_label(identity_));
  const bool claimed = contains(response, R"("status":"ok")") ||
                       contains(response, R"("status":"pending_signature")") ||
                       contains(response, R"("waiting_for_signature")");
  if (!claimed) {
    return response;
  }
  pairing_.latest_bind_token = token;
  pairing_.latest_claimed_connector_id = identity_.device_id;
  pairing_.pairing_status = "pending_signature";
  pairing_.wallet_approval_confirmed = false;
  identity_.paired = false;
  identity_.owner_wallet.clear();
  health_ = ConnectorHealth::pairing_required;
  identity_store_.save(identity_);
  persist_pairing_state();
  return response;
}

std::string ConnectorApp::binding_status() {
  // A claimed token may have its wallet by now: claiming it again asks for that, and nothing else
  // of the answer is used.
  if (pairing_.owner_wallet_address.empty() && !pairing_.latest_bind_token.empty()) {
    const std::string claim = relay_.claim_token(pairing_.latest_bind_token, identity_.device_id,
                                                 connector_label(identity_));
    if (const auto wallet = wallet_in(claim)) {
      pairing_.owner_wallet_address = *wallet;
      persist_pairing_state();
    }
  }

  if (pairing_.owner_wallet_address.empty()) {
    const bool waiting =
        pairing_.latest_bind_token.empty() && pairing_.latest_claimed_connector_id.empty();
    return bind_state_json(waiting ? "token_waiting" : "pending_signature", identity_.device_id,
                           pairing_.pairing_status);
  }

  std::string response = relay_.bind_status(pairing_.owner_wallet_address, identity_.device_id);

  if (contains(response, R"("reason":"session_missing")") ||
      response_has_bind_state(response, "token_missing")) {
    disconnect_binding();
    return bind_state_json("token_waiting", identity_.device_id, "unpaired");
  }

  if (response_has_bind_state(response, "authorized")) {
    if (const auto wallet = wallet_in(response)) {
      pairing_.owner_wallet_address = *wallet;
    }
    apply_bound_pairing_state();
    persist_pairing_state();
    return response;
  }

  if (response_has_bind_state(response, "pending_signature")) {
    pairing_.latest_claimed_connector_id = identity_.device_id;
    pairing_.pairing_status = "pending_signature";
    pairing_.wallet_approval_confirmed = false;
    if (const auto wallet = wallet_in(response)) {
      pairing_.owner_wallet_address = *wallet;
      identity_.owner_wallet = *wallet;
    }
    identity_.paired = false;
    identity_store_.save(identity_);
    health_ = ConnectorHealth::pairing_required;
    persist_pairing_state();
  }
  return response;
}

std::string ConnectorApp::disconnect_binding() {
  pairing_.owner_wallet_address.clear();
  pairing_.pairing_status = "unpaired";
  pairing_.wallet_approval_confirmed = false;
  pairing_.platform_terms_accepted = false;
  clear_pending_pairing_state();
  identity_.owner_wallet.clear();
  identity_.paired = false;
  identity_store_.save(identity_);
  health_ = ConnectorHealth::pairing_required;
  persist_pairing_state();
  return R"({"status":"ok","state":"disconnected"})";
}

// Meant: no JSON is parsed, so a blank after the colon is not recognised; the relay writes none.
bool ConnectorApp::response_has_bind_state(const std::string& response,
                                           const std::string& state) const {
  return contains(response, R"("bindState":")" + state + "\"");
}

void ConnectorApp::apply_bound_pairing_state() {
  pairing_.pairing_status = "bound";
  pairing_.latest_claimed_connector_id = identity_.device_id;
  pairing_.wallet_approval_confirmed = true;
  pairing_.platform_terms_accepted = true;
  // Meant: this empties the id just set; a bound connector keeps neither token nor claimed id.
  clear_pending_pairing_state();
  identity_.owner_wallet = pairing_.owner_wallet_address;
  identity_.paired = true;
  identity_store_.save(identity_);
  health_ = ConnectorHealth::ready;
}

void ConnectorApp::persist_pairing_state() { pairing_store_.save(pairing_); }

void ConnectorApp::clear_pending_pairing_state() {
  pairing_.latest_bind_token.clear();
  pairing_.latest_claimed_connector_id.clear();
}

}  // namespace morvane::connector
