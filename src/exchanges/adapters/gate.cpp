#include "exchanges/adapters/adapters.hpp"
#include "hosts.hpp"
#include "net/clock.hpp"
#include "net/digest.hpp"

// Gate, API v4, USDT-settled futures. The platform's symbol is Gate's own contract name.
// https://www.gate.com/docs/developers/apiv4/en/#authentication

namespace morvane::connector {
namespace {

std::string timestamp() { return std::to_string(epoch_sec()); }

SignedRequest sign(const ExchangeRequest& request, const StoredCredential& credential,
                   const std::string& timestamp) {
  const std::string text = request.method + "\n" + request.path + "\n" + request.query + "\n" +
                           sha512_hex(request.body) + "\n" + timestamp;
  SignedRequest result{.method = request.method,
                       .url = hosts::gate + request.target(),
                       .headers = {"KEY: " + credential.api_key, "Timestamp: " + timestamp,
                                   "SIGN: " + hmac_sha512_hex(credential.api_secret, text)},
                       .body = request.body};
  if (!request.body.empty()) {
    result.headers.emplace_back("Content-Type: application/json");
  }
  return result;
}

ExchangeRequest balance() { return get("/api/v4/futures/usdt/accounts", ""); }

// Meant: the symbol is not used. Every held position comes back, for the platform to select from.
ExchangeRequest position(const std::string& /*symbol*/) {
  return get("/api/v4/futures/usdt/positions", "holding=true");
}

ExchangeRequest about_order(const char* method, const std::string& symbol,
                            const std::string& order_id) {
  return request(method, "/api/v4/futures/usdt/orders/" + order_id, "contract=" + symbol);
}

ExchangeRequest order_status(const std::string& symbol, const std::string& order_id) {
  return about_order("GET", symbol, order_id);
}

ExchangeRequest cancel_order(const std::string& symbol, const std::string& order_id) {
  return about_order("DELETE", symbol, order_id);
}

// Meant: a POST whose parameters stand in the query, without body or content type.
ExchangeRequest set_leverage(const std::string& symbol, const std::string& /*side*/, int leverage) {
  return request("POST", "/api/v4/futures/usdt/positions/" + symbol + "/leverage",
                 "leverage=" + std::to_string(leverage));
}

// A short order has a negative size; the quantity is not inspected, so "-3" sold becomes "--3".
ExchangeRequest limit_order(const LimitOrder& order, const char* sign, const char* tail) {
  return post("/api/v4/futures/usdt/orders", R"({"contract":")" + order.symbol + R"(","size":)" +
                                                 sign + order.quantity + R"(,"price":")" +
                                                 order.price + R"(","tif":"gtc")" + tail + "}");
}

ExchangeRequest open(const LimitOrder& order) {
  return limit_order(order, order.side == "buy" ? "" : "-", "");
}

ExchangeRequest close(const LimitOrder& order) {
  return limit_order(order, order.side == "buy" ? "-" : "", R"(,"reduce_only":true)");
}

ExchangeRequest funding(const std::string& symbol, int lookback_minutes, std::int64_t now_ms) {
  const std::int64_t start_sec = now_ms / 1000 - std::int64_t{lookback_minutes} * 60;
  return get("/api/v4/futures/usdt/account_book",
             "type=fund&contract=" + symbol + "&from=" + std::to_string(start_sec) + "&limit=50");
}

ExchangeRequest closing_order(const std::string& /*symbol*/, const std::string& order_id) {
  return get("/api/v4/futures/usdt/orders/" + order_id, "");
}

ExchangeRequest closed_positions(const std::string& symbol) {
  return get("/api/v4/futures/usdt/my_trades", "contract=" + symbol + "&limit=20");
}

constexpr TradeAdapter trades = {
    .set_leverage = set_leverage,
    .open = open,
    .close = close,
    .funding = funding,
    .closing_order = closing_order,
    .closed_positions = closed_positions,
    .report_key = "trades",
    .report_in_steps = true,
};

}  // namespace

constexpr ExchangeAdapter gate = {
    .id = "gate",
    .timestamp = timestamp,
    .sign = sign,
    .balance = balance,
    .position = position,
    .order_status = order_status,
    .cancel_order = cancel_order,
    .trades = &trades,
};

}  // namespace morvane::connector
