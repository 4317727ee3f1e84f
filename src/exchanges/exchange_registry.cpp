#include "exchanges/exchange_registry.hpp"

#include <algorithm>

#include "exchanges/catalogue.hpp"
#include "exchanges/live_check.hpp"
#include "net/clock.hpp"
#include "net/text.hpp"

namespace morvane::connector {

std::string to_string(ExchangeConnectionStatus status) {
  return name_of(static_cast<std::size_t>(status),
                 {"not_configured", "configured", "validating", "valid_read_only",
                  "valid_trade_ready", "invalid", "error"});
}

ExchangeRegistry::ExchangeRegistry() {
  for (const Exchange& exchange : catalogue()) {
    if (exchange.registered) {
      supported_.emplace_back(exchange.id);
    }
  }
}

std::vector<ExchangeConnection> ExchangeRegistry::bootstrap() const {
  std::vector<ExchangeConnection> connections;
  for (const std::string& exchange : supported_) {
    connections.push_back(
        {exchange, ExchangeConnectionStatus::not_configured, false, "not configured", ""});
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
  if (const LiveCheck check = find_exchange(request.exchange)->live_check) {
    return (this->*check)(request);
  }
  ValidateCredentialsResult result =
      invalid_result(request, "adapter exists, live validation not implemented yet", iso8601_now());
  result.status = ExchangeConnectionStatus::configured;
  return result;
}

}  // namespace morvane::connector
