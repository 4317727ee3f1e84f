#include "exchanges/adapters/adapters.hpp"
#include "hosts.hpp"
#include "net/digest.hpp"

// Bitget, API v2, USDT-M futures ("mix" endpoints).
// https://www.bitget.com/api-doc/common/signature

namespace morvane::connector {
namespace {

SignedRequest sign(const ExchangeRequest& request, const StoredCredential& credential,
                   const std::string& timestamp) {
  const std::string text = timestamp + request.method + request.target() + request.body;
  return {
      .method = request.method,
      .url = hosts::bitget + request.target(),
      .headers = {"ACCESS-KEY: " + credential.api_key,
                  "ACCESS-SIGN: " + hmac_sha256_base64(credential.api_secret, text),
                  "ACCESS-TIMESTAMP: " + timestamp, "ACCESS-PASSPHRASE: " + credential.passphrase,
                  "Content-Type: application/json"},
      .body = request.body};
}

// Meant: unguarded, BTCUSDT becomes BTCUSDTUSDT; the platform always sends BASE_USDT here.
std::string bitget_symbol(const std::string& symbol) { return base_asset(symbol) + "USDT"; }

// Meant: the balance alone names a language and the platform's channel code.
ExchangeRequest balance() {
  ExchangeRequest request = get("/api/v2/mix/account/accounts", "productType=USDT-FUTURES");
  request.extra_headers = {"locale: en-US", "X-CHANNEL-API-CODE: qzvtk"};
  return request;
}

ExchangeRequest position(const std::string& symbol) {
  return get("/api/v2/mix/position/single-position",
             "symbol=" + bitget_symbol(symbol) + "&productType=USDT-FUTURES&marginCoin=USDT");
}

ExchangeRequest order_status(const std::string& symbol, const std::string& order_id) {
  return get("/api/v2/mix/order/detail",
             "symbol=" + bitget_symbol(symbol) + "&productType=USDT-FUTURES&orderId=" + order_id);
}

ExchangeRequest cancel_order(const std::string& symbol, const std::string& order_id) {
  return post("/api/v2/mix/order/cancel-order",
              R"({"symbol":")" + bitget_symbol(symbol) +
                  R"(","productType":"USDT-FUTURES","orderId":")" + order_id + "\"}");
}

}  // namespace

constexpr ExchangeAdapter bitget = {
    .id = "bitget",
    .timestamp = epoch_ms_text,
    .sign = sign,
    .balance = balance,
    .position = position,
    .order_status = order_status,
    .cancel_order = cancel_order,
    .trades = nullptr,
};

}  // namespace morvane::connector
