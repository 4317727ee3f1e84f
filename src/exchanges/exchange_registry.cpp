#include "exchanges/exchange_registry.hpp"

#include <algorithm>
#include <array>
#include <string_view>

#include "exchanges/validation.hpp"
#include "net/clock.hpp"

namespace morvane::connector {
namespace {

struct LiveCheck {
  std::string_view exchange;
  ValidateCredentialsResult (ExchangeRegistry::*run)(const ValidateCredentialsRequest&) const;
};

constexpr std::array<LiveCheck, 6> live_checks = {{
    {"bybit", &ExchangeRegistry::validate_bybit},
    {"okx", &ExchangeRegistry::validate_okx},
    {"gate", &ExchangeRegistry::validate_gate},
    {"bingx", &ExchangeRegistry::validate_bingx},
    {"kucoin", &ExchangeRegistry::validate_kucoin},
    {"bitget", &ExchangeRegistry::validate_bitget},
}};

}  // namespace

ExchangeRegistry::ExchangeRegistry()
    : supported_{"bybit",       "okx",     "gate",    "bingx",    "kucoin", "bitget",
                 "hyperliquid", "paradex", "lighter", "extended", "reya"} {}

std::vector<ExchangeConnection> ExchangeRegistry::bootstrap() const {
  std::vector<ExchangeConnection> connections;
  for (const std::string& exchange : supported_) {
    connections.push_back({.exchange = exchange,
                           .status = ExchangeConnectionStatus::not_configured,
                           .credentials_present = false,
                           .message = "not configured",
                           .checked_at = ""});
  }
  return connections;
}

ValidateCredentialsResult ExchangeRegistry::validate(
    const ValidateCredentialsRequest& request) const {
  if (std::find(supported_.begin(), supported_.end(), request.exchange) == supported_.end()) {
    return invalid_result(request, "unsupported exchange", iso8601_now());
  }
  if (request.credential.api_key.empty() || request.credential.api_secret.empty()) {
    return invalid_result(request, "missing api key or secret", iso8601_now());
  }
  for (const LiveCheck& check : live_checks) {
    if (check.exchange == request.exchange) {
      return (this->*check.run)(request);
    }
  }
  ValidateCredentialsResult result =
      invalid_result(request, "adapter exists, live validation not implemented yet", iso8601_now());
  result.status = ExchangeConnectionStatus::configured;
  return result;
}

}  // namespace morvane::connector
