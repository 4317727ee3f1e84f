#pragma once

#include <string>

#include "state/credential_text.hpp"

namespace morvane::connector {

// What is known of one exchange's credential.
enum class ExchangeConnectionStatus {
  not_configured,
  configured,
  validating,  // never set: a run ends with the check
  valid_read_only,
  valid_trade_ready,
  invalid,
  error,
};

// The value's own name; "unknown" for anything outside the enumeration.
inline std::string to_string(ExchangeConnectionStatus status) {
  switch (status) {
    case ExchangeConnectionStatus::not_configured: return "not_configured";
    case ExchangeConnectionStatus::configured: return "configured";
    case ExchangeConnectionStatus::validating: return "validating";
    case ExchangeConnectionStatus::valid_read_only: return "valid_read_only";
    case ExchangeConnectionStatus::valid_trade_ready: return "valid_trade_ready";
    case ExchangeConnectionStatus::invalid: return "invalid";
    case ExchangeConnectionStatus::error: return "error";
  }
  return "unknown";
}

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
  bool credentials_saved = false;  // never set by a check; for who saves
  std::string message;             // for a person; holds the exchange's answer when it refused
  std::string checked_at;          // UTC, to the second
};

// One exchange as the status shows it.
struct ExchangeConnection {
  std::string exchange;
  ExchangeConnectionStatus status = ExchangeConnectionStatus::not_configured;
  bool credentials_present = false;
  std::string message;
  std::string checked_at;  // for the time of the last check, which nothing keeps yet
};

}  // namespace morvane::connector
