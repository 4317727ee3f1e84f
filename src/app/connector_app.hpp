#pragma once

#include <optional>
#include <string>
#include <vector>

#include "app/capabilities.hpp"
#include "app/snapshot.hpp"
#include "exchanges/cex_executor.hpp"
#include "exchanges/cex_reader.hpp"
#include "exchanges/exchange_registry.hpp"
#include "relay/relay_client.hpp"
#include "state/config_store.hpp"
#include "state/device_identity.hpp"
#include "state/key_vault.hpp"
#include "state/pairing_store.hpp"
#include "update/updater.hpp"

namespace morvane::connector {

// Owns every store and client for one run. Its caller constructs it, calls bootstrap() once and
// then one operation.
class ConnectorApp {
 public:
  // Creates the root, the vault and the updates folder; throws std::filesystem::filesystem_error
  // when one cannot be created. An empty `relay_url` leaves the relay unconfigured.
  ConnectorApp(std::string app_root, std::string relay_url);
  ConnectorApp(const ConnectorApp&) = delete;
  ConnectorApp& operator=(const ConnectorApp&) = delete;

  // Loads or creates the identity, loads the pairing and derives the health. Sends nothing.
  void bootstrap();

  // Proves the credential live and keeps it when it is valid, a read-only one too. A vault that
  // refuses it turns the result into an error.
  ValidateCredentialsResult validate_and_save(const ValidateCredentialsRequest& request);
  std::optional<StoredCredential> load_exchange_credentials(const std::string& exchange) const {
    return vault_.load(exchange);
  }
  bool delete_exchange_credentials(const std::string& exchange) { return vault_.remove(exchange); }

  // Records the owner's wallet, unchecked, and unpairs the identity. False when a file could not
  // be opened for writing.
  bool set_owner_wallet(const std::string& address);
  PairingState pairing_state() const { return pairing_; }

  ConnectorSnapshot snapshot() const;
  std::vector<ExchangeCapabilityMatrix> capability_matrix() const {
    return tolvek_capability_baseline();
  }

  // From here on, each answers one-line JSON: {"status":"ok",...}, or {"status":"error"} with a
  // reason. in_frame, Updater and RelayClient name theirs; binding adds wallet_missing and
  // token_missing, and passes the relay's own text on, a refusal too. State files that cannot be
  // written are not reported.

  std::string get_balance(const std::string& exchange) const {
    return reader_.get_balance(exchange);
  }
  std::string get_position(const std::string& exchange, const std::string& symbol) const {
    return reader_.get_position(exchange, symbol);
  }
  std::string get_order_status(const std::string& exchange, const std::string& symbol,
                               const std::string& order_id) const {
    return reader_.get_order_status(exchange, symbol, order_id);
  }
  std::string cancel_order(const std::string& exchange, const std::string& symbol,
                           const std::string& order_id) const {
    return reader_.cancel_order(exchange, symbol, order_id);
  }
  std::string get_funding(const std::string& exchange, const std::string& symbol,
                          int lookback_minutes) const {
    return executor_.get_funding(exchange, symbol, lookback_minutes);
  }
  std::string get_close_report(const std::string& exchange, const std::string& symbol,
                               const std::string& order_id) const {
    return executor_.get_close_report(exchange, symbol, order_id);
  }
  std::string place_open(const std::string& exchange, const std::string& symbol,
                         const std::string& side, const std::string& quantity,
                         const std::string& price, int leverage) const {
    return executor_.place_open(exchange, symbol, side, quantity, price, leverage);
  }
  std::string place_close(const std::string& exchange, const std::string& symbol,
                          const std::string& side, const std::string& quantity,
                          const std::string& price) const {
    return executor_.place_close(exchange, symbol, side, quantity, price);
  }
  std::string update_check() const { return updater_.check(); }
  std::string update_download() const { return updater_.download(); }
  std::string update_apply() const { return updater_.apply(); }

  // In app/connector_binding.cpp.
  std::string server_health() const;
  std::string bind_wallet_to_server();
  std::string binding_status();
  std::string claim_bind_token(const std::string& token);
  std::string disconnect_binding();

 private:
  bool response_has_bind_state(const std::string& response, const std::string& state) const;
  // These three change identity and pairing, save both and set the health.
  void apply_bound_pairing_state();
  void apply_pending_pairing_state();
  void save_binding(bool paired);
  void persist_pairing_state() { pairing_store_.save(pairing_); }
  void clear_pending_pairing_state();

  ConfigStore config_store_;
  DeviceIdentityStore identity_store_;
  KeyVault vault_;  // borrowed by reader and executor, so it stands before them
  ExchangeRegistry registry_;
  PairingStore pairing_store_;
  RelayClient relay_;
  CexReader reader_;
  CexExecutor executor_;
  Updater updater_;
  DeviceIdentity identity_;
  PairingState pairing_;
  ConnectorHealth health_ = ConnectorHealth::starting;
};

}  // namespace morvane::connector
