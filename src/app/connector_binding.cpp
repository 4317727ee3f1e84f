#include <algorithm>
#include <optional>
#include <string_view>
#include <utility>

#include "app/connector_app.hpp"
#include "net/json.hpp"
#include "net/text.hpp"

// The members of ConnectorApp that bind it to the owner's platform account, the only ones that
// change what is bound: each asks the relay, applies what the answer says, saves it and answers.
// Meant: answers are judged by substrings alone; no JSON is parsed, so a blank after a colon is not
// recognised.

namespace morvane::connector {
namespace {

std::string connector_label(const DeviceIdentity& identity) {
  return identity.device_label.empty() ? "macOS connector" : identity.device_label;
}

// The answer to a claim leaves the binding to the owner's signature.
bool is_claimed(const std::string& response) {
  return contains(response, R"("status":"ok")") ||
         contains(response, R"("status":"pending_signature")") ||
         contains(response, R"("waiting_for_signature")");
}

// The text after the first "wallet":" up to the next quote; nothing when it holds a control
// character, which no JSON text can hold: a line feed would begin a line of the state file.
std::optional<std::string> wallet_in(const std::string& response) {
  constexpr std::string_view marker = R"("wallet":")";
  const std::size_t at = response.find(marker);
  const std::size_t begin = at + marker.size();
  const std::size_t end = at == std::string::npos ? at : response.find('"', begin);
  if (end == std::string::npos) {
    return std::nullopt;
  }
  std::string wallet = response.substr(begin, end - begin);
  const bool is_text = std::none_of(wallet.begin(), wallet.end(),
                                    [](unsigned char byte) { return byte < 0x20 || byte == 0x7f; });
  return is_text ? std::optional(std::move(wallet)) : std::nullopt;
}

// A claim was made, and its wallet is not known yet.
bool has_pending_token_state(const PairingState& pairing) {
  return !pairing.latest_bind_token.empty() || !pairing.latest_claimed_connector_id.empty();
}

std::string bind_state_json(const std::string& state, const std::string& connector_id,
                            const std::string& pairing_status) {
  return json_object({{"status", json_raw("ok")},
                      {"bindState", json_raw(state)},
                      {"connectorId", json_raw(connector_id)},
                      {"pairingStatus", json_raw(pairing_status)}});
}

}  // namespace

std::string ConnectorApp::server_health() const {
  ServerStatus status = relay_.health(identity_.owner_wallet);
  // The relay's own JSON stands bare; our words need their quotes.
  return json_object(
      {{"status", json_raw("ok")},
       {"relay_url", json_raw(status.relay_url)},
       {"reachable", true_or_false(status.reachable)},
       {"health_status", json_raw(status.health_status)},
       {"wallet_address", json_raw(status.wallet_address)},
       {"message", status.reachable ? std::move(status.message) : json_raw(status.message)}});
}

std::string ConnectorApp::bind_wallet_to_server() {
  if (pairing_.owner_wallet_address.empty()) {
    return fail_json("wallet_missing");
  }
  std::string response = relay_.bind_wallet(pairing_.owner_wallet_address, identity_.device_id);
  // Meant: bound whatever the relay said, even when it is down.
  apply_bound_pairing_state();
  return response;
}

std::string ConnectorApp::claim_bind_token(const std::string& token) {
  if (token.empty()) {
    return fail_json("token_missing");
  }
  std::string response = relay_.claim_token(token, identity_.device_id, connector_label(identity_));
  if (is_claimed(response)) {
    pairing_.latest_bind_token = token;
    identity_.owner_wallet.clear();
    apply_pending_pairing_state();
  }
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
    return bind_state_json(
        has_pending_token_state(pairing_) ? pairing_status::pending_signature : "token_waiting",
        identity_.device_id, pairing_.pairing_status);
  }

  std::string response = relay_.bind_status(pairing_.owner_wallet_address, identity_.device_id);
  const auto wallet = wallet_in(response);
  if (contains(response, R"("reason":"session_missing")") ||
      response_has_bind_state(response, "token_missing")) {
    disconnect_binding();
    return bind_state_json("token_waiting", identity_.device_id, pairing_.pairing_status);
  }
  if (response_has_bind_state(response, "authorized")) {
    pairing_.owner_wallet_address = wallet.value_or(pairing_.owner_wallet_address);
    apply_bound_pairing_state();
  } else if (response_has_bind_state(response, "pending_signature")) {
    pairing_.owner_wallet_address = wallet.value_or(pairing_.owner_wallet_address);
    identity_.owner_wallet = wallet.value_or(identity_.owner_wallet);
    apply_pending_pairing_state();
  }
  return response;
}

std::string ConnectorApp::disconnect_binding() {
  pairing_.owner_wallet_address.clear();
  pairing_.pairing_status = pairing_status::unpaired;
  pairing_.wallet_approval_confirmed = false;
  pairing_.platform_terms_accepted = false;
  clear_pending_pairing_state();
  identity_.owner_wallet.clear();
  save_binding(false);
  return json_object({{"status", json_raw("ok")}, {"state", json_raw("disconnected")}});
}

bool ConnectorApp::response_has_bind_state(const std::string& response,
                                           const std::string& state) const {
  return contains(response, R"("bindState":")" + state + "\"");
}

void ConnectorApp::apply_bound_pairing_state() {
  pairing_.pairing_status = pairing_status::bound;
  pairing_.wallet_approval_confirmed = true;
  pairing_.platform_terms_accepted = true;
  clear_pending_pairing_state();
  identity_.owner_wallet = pairing_.owner_wallet_address;
  save_binding(true);
}

void ConnectorApp::apply_pending_pairing_state() {
  pairing_.latest_claimed_connector_id = identity_.device_id;
  pairing_.pairing_status = pairing_status::pending_signature;
  pairing_.wallet_approval_confirmed = false;
  save_binding(false);
}

void ConnectorApp::save_binding(bool paired) {
  identity_.paired = paired;
  identity_store_.save(identity_);
  persist_pairing_state();
  health_ = paired ? ConnectorHealth::ready : ConnectorHealth::pairing_required;
}

void ConnectorApp::clear_pending_pairing_state() {
  pairing_.latest_bind_token.clear();
  pairing_.latest_claimed_connector_id.clear();
}

}  // namespace morvane::connector
