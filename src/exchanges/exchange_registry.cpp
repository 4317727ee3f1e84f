#include "exchanges/exchange_registry.hpp"

#include <algorithm>

#include "exchanges/catalogue.hpp"
#include "exchanges/live_check.hpp"
#include "net/clock.hpp"

namespace morvane::connector {

ExchangeRegistry::ExchangeRegistry() {
  for (const Exchange& exchange : catalogue()) {
    if (exchange.registered) {
      supported_.push_back(&exchange);
    }
  }
}

std::vector<ExchangeConnection> ExchangeRegistry::bootstrap() const {
  std::vector<ExchangeConnection> connections;
  for (const Exchange* exchange : supported_) {
    connections.push_back({std::string(exchange->id), ExchangeConnectionStatus::not_configured,
                           false, "not configured", ""});
  }
  return connections;
}

ValidateCredentialsResult ExchangeRegistry::validate(
    const ValidateCredentialsRequest& request) const {
  const auto found =
      std::find_if(supported_.begin(), supported_.end(),
                   [&](const Exchange* exchange) { return exchange->id == request.exchange; });
  if (found == supported_.end()) {
    return invalid_result(request, "unsupported exchange", iso8601_now());
  }
  if (request.credential.api_key.empty() || request.credential.api_secret.empty()) {
    return invalid_result(request, "missing api key or secret", iso8601_now());
  }
  if (const ExchangeAdapter* adapter = (*found)->adapter) {
    return adapter->live_check(**found, request);
  }
  ValidateCredentialsResult result =
      invalid_result(request, "adapter exists, live validation not implemented yet", iso8601_now());
  result.status = ExchangeConnectionStatus::configured;
  return result;
}

ValidateCredentialsResult ExchangeRegistry::check_at(const char* exchange,
                                                     const ValidateCredentialsRequest& request) {
  const Exchange& at = *exchange_named(exchange);
  return at.adapter->live_check(at, request);
}

}  // namespace morvane::connector
