#include "exchanges/exchange_registry.hpp"

#include "exchanges/catalogue.hpp"
#include "exchanges/live_check.hpp"
#include "net/clock.hpp"

namespace morvane::connector {

std::vector<ExchangeConnection> ExchangeRegistry::bootstrap() const {
  std::vector<ExchangeConnection> connections;
  for (const Exchange& exchange : catalogue()) {
    if (exchange.registered) {
      connections.push_back({std::string(exchange.id), ExchangeConnectionStatus::not_configured,
                             false, "not configured", ""});
    }
  }
  return connections;
}

ValidateCredentialsResult ExchangeRegistry::validate(
    const ValidateCredentialsRequest& request) const {
  const Exchange* exchange = exchange_named(request.exchange);
  if (exchange == nullptr || !exchange->registered) {
    return invalid_result(request, "unsupported exchange", iso8601_now());
  }
  if (request.credential.api_key.empty() || request.credential.api_secret.empty()) {
    return invalid_result(request, "missing api key or secret", iso8601_now());
  }
  if (exchange->adapter != nullptr) {
    return exchange->adapter->live_check(*exchange, request);
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
