#pragma once

#include <string>
#include <vector>

#include "exchanges/exchange_connection_status.hpp"
#include "state/key_vault.hpp"

namespace morvane::connector {

struct ValidateCredentialsRequest {
  std::string exchange;
  StoredCredential credential;  // what is saved when the check succeeds
};

// The outcome of a live check.
struct ValidateCredentialsResult {
  std::string exchange;
  ExchangeConnectionStatus status = ExchangeConnectionStatus::not_configured;
  bool can_read = false;
  bool can_trade = false;
  bool withdrawal_enabled = false;
  bool credentials_saved = false;  // never set here
  std::string message;             // for a person; holds the exchange's answer when it refused
  std::string checked_at;          // UTC, to the second
};

// One exchange as the status shows it.
struct ExchangeConnection {
  std::string exchange;
  ExchangeConnectionStatus status = ExchangeConnectionStatus::not_configured;
  bool credentials_present = false;
  std::string message;
  std::string checked_at;  // nothing fills it yet
};

// The exchanges the connector knows, and the live check of a credential against each that has one.
class ExchangeRegistry {
 public:
  ExchangeRegistry();

  // One row per known exchange, none configured, always in the same order.
  std::vector<ExchangeConnection> bootstrap() const;

  // Proves the credential with read-only private requests. `invalid`: not an exchange we know, a
  // part of the credential missing, or the exchange refused. `error`: a tool failed.
  // `configured`: no live check exists for this exchange.
  ValidateCredentialsResult validate(const ValidateCredentialsRequest& request) const;

  // The check of one exchange each; key and secret must not be empty. Bybit and Gate are asked
  // with curl and tell a failed transfer (`error`) from a refusal; the other four are probed by a
  // Python program, where a failed transfer is one more answer that proves nothing (`invalid`).
  ValidateCredentialsResult validate_bybit(const ValidateCredentialsRequest& request) const;
  ValidateCredentialsResult validate_okx(const ValidateCredentialsRequest& request) const;
  ValidateCredentialsResult validate_gate(const ValidateCredentialsRequest& request) const;
  ValidateCredentialsResult validate_bingx(const ValidateCredentialsRequest& request) const;
  ValidateCredentialsResult validate_kucoin(const ValidateCredentialsRequest& request) const;
  ValidateCredentialsResult validate_bitget(const ValidateCredentialsRequest& request) const;

 private:
  std::vector<std::string> supported_;
};

}  // namespace morvane::connector
