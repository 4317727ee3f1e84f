#include "exchanges/adapters/adapters.hpp"
#include "hosts.hpp"
#include "net/digest.hpp"

// BingX, USDT-M perpetual swaps. Parameters and signature travel in the query, for every method.
// https://bingx-api.github.io/docs/#/en-us/swapV2/authentication.html

namespace morvane::connector {
namespace {

SignedRequest sign(const ExchangeRequest& request, const StoredCredential& credential,
                   const std::string& timestamp) {
  const std::string query =
      request.query + (request.query.empty() ? "" : "&") + "timestamp=" + timestamp;
  return {.method = request.method,
          .url = hosts::bingx + request.path + "?" + query +
                 "&signature=" + hmac_sha256_hex(credential.api_secret, query),
          .headers = {"X-BX-APIKEY: " + credential.api_key},
          .body = ""};
}

std::string bingx_symbol(std::string symbol) {
  const std::size_t separator = symbol.find('_');
  if (separator != std::string::npos) {
    symbol[separator] = '-';
  }
  return symbol;
}

ExchangeRequest balance() { return get("/openApi/swap/v2/user/balance", ""); }

ExchangeRequest position(const std::string& symbol) {
  return get("/openApi/swap/v2/user/positions", "symbol=" + bingx_symbol(symbol));
}

ExchangeRequest about_order(const char* method, const std::string& symbol,
                            const std::string& order_id) {
  return request(method, "/openApi/swap/v2/trade/order",
                 "symbol=" + bingx_symbol(symbol) + "&orderId=" + order_id);
}

ExchangeRequest order_status(const std::string& symbol, const std::string& order_id) {
  return about_order("GET", symbol, order_id);
}

ExchangeRequest cancel_order(const std::string& symbol, const std::string& order_id) {
  return about_order("DELETE", symbol, order_id);
}

}  // namespace

constexpr ExchangeAdapter bingx = {
    .id = "bingx",
    .timestamp = epoch_ms_text,
    .sign = sign,
    .balance = balance,
    .position = position,
    .order_status = order_status,
    .cancel_order = cancel_order,
    .trades = nullptr,
};

}  // namespace morvane::connector
