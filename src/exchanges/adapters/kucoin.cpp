#include "exchanges/adapters/adapters.hpp"
#include "hosts.hpp"
#include "net/digest.hpp"

// KuCoin Futures, USDT-margined perpetuals. The passphrase is sent signed, as keys of version 2
// want it.
// https://www.kucoin.com/docs-new/authentication

namespace morvane::connector {
namespace {

SignedRequest sign(const ExchangeRequest& request, const StoredCredential& credential,
                   const std::string& timestamp) {
  const std::string text = timestamp + request.method + request.target() + request.body;
  return {.method = request.method,
          .url = hosts::kucoin_futures + request.target(),
          .headers = {"KC-API-KEY: " + credential.api_key,
                      "KC-API-SIGN: " + hmac_sha256_base64(credential.api_secret, text),
                      "KC-API-TIMESTAMP: " + timestamp,
                      "KC-API-PASSPHRASE: " +
                          hmac_sha256_base64(credential.api_secret, credential.passphrase),
                      "KC-API-KEY-VERSION: 2"},
          .body = request.body};
}

// KuCoin's contracts end in USDTM, and its Bitcoin is XBT. Meant: unguarded, ETHUSDT becomes
// ETHUSDTUSDTM; the platform always sends BASE_USDT here.
std::string kucoin_symbol(const std::string& symbol) {
  const std::string base = symbol.substr(0, symbol.find("_USDT"));
  return (base == "BTC" ? "XBT" : base) + "USDTM";
}

ExchangeRequest balance() { return get("/api/v1/account-overview", "currency=USDT"); }

ExchangeRequest position(const std::string& symbol) {
  return get("/api/v1/position", "symbol=" + kucoin_symbol(symbol));
}

// An order is found by its id alone.
ExchangeRequest order_status(const std::string& /*symbol*/, const std::string& order_id) {
  return get("/api/v1/orders/" + order_id, "");
}

ExchangeRequest cancel_order(const std::string& /*symbol*/, const std::string& order_id) {
  return request("DELETE", "/api/v1/orders/" + order_id, "");
}

}  // namespace

constexpr ExchangeAdapter kucoin = {
    .id = "kucoin",
    .timestamp = epoch_ms_text,
    .sign = sign,
    .balance = balance,
    .position = position,
    .order_status = order_status,
    .cancel_order = cancel_order,
    .trades = nullptr,
};

}  // namespace morvane::connector
