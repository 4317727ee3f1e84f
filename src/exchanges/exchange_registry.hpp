#pragma once

#include <string>
#include <vector>

#include "state/credential_text.hpp"

namespace morvane::connector {

// What is known of one exchange's credential.
enum class ExchangeConnectionStatus {
  not_configured,
  configured,
  validating,
  valid_read_only,
  valid_trade_ready,
  invalid,
  error,
};

// The value's own name; "unknown" for anything outside the enumeration.
std::string to_string(ExchangeConnectionStatus status);

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
  std::string checked_at;  // unused
};

// The exchanges the connector knows, and the live check of a credential against each that has one.
class ExchangeRegistry {
 public:
  // A member below. Its request names its own exchange; key and secret are not empty.
  using LiveCheck =
      ValidateCredentialsResult (ExchangeRegistry::*)(const ValidateCredentialsRequest&) const;

  ExchangeRegistry();

  // One row per known exchange, none configured, always in the same order.
  std::vector<ExchangeConnection> bootstrap() const;

  // Proves the credential with read-only private requests. `invalid`: not an exchange we know, a
  // part of the credential missing, or the exchange refused. `error`: a tool failed.
  // `configured`: no live check exists for this exchange.
  ValidateCredentialsResult validate(const ValidateCredentialsRequest& request) const;

  // Each is defined in its exchange's own file. Those that ask with curl tell a failed transfer
  // (`error`) from a refusal; for those that probe with a Python program it is one more answer that
  // proves nothing (`invalid`).
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
