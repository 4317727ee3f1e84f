#include "app/connector_app.hpp"

#include <utility>

#include "settings.hpp"
#include "state/state_files.hpp"

namespace morvane::connector {
namespace {

std::string app_version() { return settings::version; }

ExchangeConnection* find_exchange(std::vector<ExchangeConnection>& connections,
                                  const std::string& exchange) {
  for (ExchangeConnection& connection : connections) {
    if (connection.exchange == exchange) {
      return &connection;
    }
  }
  return nullptr;
}

}  // namespace

ConnectorApp::ConnectorApp(std::string app_root, std::string relay_url)
    : config_store_(app_root),
      identity_store_(app_root),
      vault_(app_root + state_files::vault),
      pairing_store_(app_root),
      relay_(std::move(relay_url)),
      reader_(vault_),
      executor_(vault_),
      updater_(std::move(app_root), settings::update_manifest, app_version()) {}

void ConnectorApp::bootstrap() {
  identity_ = identity_store_.load_or_create();
  pairing_ = pairing_store_.load();
  // In memory only: the file keeps the wallet that it has.
  if (!identity_.paired) {
    identity_.owner_wallet.clear();
  } else if (!pairing_.owner_wallet_address.empty()) {
    identity_.owner_wallet = pairing_.owner_wallet_address;
  }
  relay_.connect();
  // Meant: a claimed token that waits for its signature is no state of its own.
  health_ = identity_.paired && pairing_.wallet_approval_confirmed
                ? ConnectorHealth::ready
                : ConnectorHealth::pairing_required;
}

ValidateCredentialsResult ConnectorApp::validate_and_save(
    const ValidateCredentialsRequest& request) {
  ValidateCredentialsResult result = registry_.validate(request);
  if (result.status != ExchangeConnectionStatus::valid_read_only &&
      result.status != ExchangeConnectionStatus::valid_trade_ready) {
    return result;
  }
  result.credentials_saved = vault_.save(request.credential);
  if (!result.credentials_saved) {
    result.status = ExchangeConnectionStatus::error;
    result.message = "failed to persist credentials to local vault";
  }
  return result;
}

bool ConnectorApp::set_owner_wallet(const std::string& address) {
  if (!pairing_store_.set_owner_wallet(address)) {
    return false;
  }
  pairing_ = pairing_store_.load();
  identity_.owner_wallet = pairing_.owner_wallet_address;
  identity_.paired = false;
  return identity_store_.save(identity_);
}

ConnectorSnapshot ConnectorApp::snapshot() const {
  std::vector<ExchangeConnection> exchanges = registry_.bootstrap();
  for (const std::string& stored : vault_.list_exchanges()) {
    if (ExchangeConnection* connection = find_exchange(exchanges, stored)) {
      connection->status = ExchangeConnectionStatus::configured;
      connection->credentials_present = true;
      connection->message = "credentials stored locally";
    }
  }
  return {.identity = identity_,
          .health = health_,
          .relay_connected = relay_.connected(),
          .vault_backend = vault_.backend_name(),
          .exchanges = std::move(exchanges)};
}

}  // namespace morvane::connector
