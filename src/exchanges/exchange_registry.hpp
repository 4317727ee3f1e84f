#pragma once

#include <string>
#include <vector>

#include "exchanges/validation.hpp"

namespace morvane::connector {

// The exchanges the connector knows, as the catalogue has them, and the live check of a credential
// against each that has one.
class ExchangeRegistry {
 public:
  // One row per known exchange, none configured, in the catalogue's order.
  std::vector<ExchangeConnection> bootstrap() const;

  // Proves the credential with read-only private requests. `invalid`: not an exchange we know, a
  // part of the credential missing, or the exchange refused. `error`: a tool failed.
  // `configured`: no live check exists for this exchange.
  ValidateCredentialsResult validate(const ValidateCredentialsRequest& request) const;

  // One exchange's live check by name, for who has no need of validate's own questions: `request`
  // names that exchange; key and secret are not empty.
  ValidateCredentialsResult validate_bybit(const ValidateCredentialsRequest& request) const {
    return check_at("bybit", request);
  }
  ValidateCredentialsResult validate_okx(const ValidateCredentialsRequest& request) const {
    return check_at("okx", request);
  }
  ValidateCredentialsResult validate_gate(const ValidateCredentialsRequest& request) const {
    return check_at("gate", request);
  }
  ValidateCredentialsResult validate_bingx(const ValidateCredentialsRequest& request) const {
    return check_at("bingx", request);
  }
  ValidateCredentialsResult validate_kucoin(const ValidateCredentialsRequest& request) const {
    return check_at("kucoin", request);
  }
  ValidateCredentialsResult validate_bitget(const ValidateCredentialsRequest& request) const {
    return check_at("bitget", request);
  }

 private:
  static ValidateCredentialsResult check_at(const char* exchange,
                                            const ValidateCredentialsRequest& request);
};

}  // namespace morvane::connector
