#pragma once

#include <string>

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

}  // namespace morvane::connector
