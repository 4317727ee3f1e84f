#include "exchanges/adapters/adapters.hpp"
#include "hosts.hpp"
#include "net/digest.hpp"

// Bybit, V5 API, unified account, linear USDT perpetuals.
// https://bybit-exchange.github.io/docs/v5/guide#authentication

namespace morvane::connector {
namespace {

const char* const receive_window = "5000";

SignedRequest sign(const ExchangeRequest& request, const StoredCredential& credential,
                   const std::string& timestamp) {
  const bool post = request.method == "POST";
  const std::string signature =
      hmac_sha256_hex(credential.api_secret, timestamp + credential.api_key + receive_window +
                                                 (post ? request.body : request.query));
  SignedRequest result{
      .method = request.method,
      .url = hosts::bybit + request.target(),
      .headers = {"X-BAPI-API-KEY: " + credential.api_key, "X-BAPI-TIMESTAMP: " + timestamp,
                  std::string("X-BAPI-RECV-WINDOW: ") + receive_window,
                  "X-BAPI-SIGN: " + signature},
      .body = request.body};
  if (post) {
    result.headers.emplace_back("Content-Type: application/json");
  }
  return result;
}

// Meant: reads and cancels map without a guard (BTCUSDT becomes BTCUSDTUSDT), trades with one.
// The platform sends BASE_USDT to the first and may send either form to the second.
std::string unguarded_symbol(const std::string& symbol) { return base_asset(symbol) + "USDT"; }

std::string bybit_native(const std::string& symbol) {
  return symbol.find('_') == std::string::npos ? symbol : base_asset(symbol) + "USDT";
}

ExchangeRequest balance() { return get("/v5/account/wallet-balance", "accountType=UNIFIED"); }

ExchangeRequest position(const std::string& symbol) {
  return get("/v5/position/list",
             "category=linear&symbol=" + unguarded_symbol(symbol) + "&settleCoin=USDT");
}

ExchangeRequest order_status(const std::string& symbol, const std::string& order_id) {
  return get("/v5/order/realtime",
             "category=linear&symbol=" + unguarded_symbol(symbol) + "&orderId=" + order_id);
}

ExchangeRequest cancel_order(const std::string& symbol, const std::string& order_id) {
  return post("/v5/order/cancel", R"({"category":"linear","symbol":")" + unguarded_symbol(symbol) +
                                      R"(","orderId":")" + order_id + "\"}");
}

ExchangeRequest set_leverage(const std::string& symbol, const std::string& /*side*/, int leverage) {
  const std::string value = std::to_string(leverage);
  return post("/v5/position/set-leverage", R"({"category":"linear","symbol":")" +
                                               bybit_native(symbol) + R"(","buyLeverage":")" +
                                               value + R"(","sellLeverage":")" + value + "\"}");
}

ExchangeRequest limit_order(const LimitOrder& order, const char* side, const char* tail) {
  return post("/v5/order/create",
              R"({"category":"linear","symbol":")" + bybit_native(order.symbol) + R"(","side":")" +
                  side + R"(","orderType":"Limit","qty":")" + order.quantity + R"(","price":")" +
                  order.price + R"(","timeInForce":"GTC")" + tail + "}");
}

ExchangeRequest open(const LimitOrder& order) {
  return limit_order(order, order.side == "buy" ? "Buy" : "Sell", "");
}

ExchangeRequest close(const LimitOrder& order) {
  return limit_order(order, order.side == "buy" ? "Sell" : "Buy", R"(,"reduceOnly":true)");
}

ExchangeRequest funding(const std::string& symbol, int lookback_minutes, std::int64_t now_ms) {
  const std::int64_t start_ms = now_ms - std::int64_t{lookback_minutes} * 60 * 1000;
  return get("/v5/account/transaction-log", "category=linear&symbol=" + bybit_native(symbol) +
                                                "&startTime=" + std::to_string(start_ms) +
                                                "&limit=50");
}

ExchangeRequest closing_order(const std::string& symbol, const std::string& order_id) {
  return get("/v5/order/realtime", "category=linear&symbol=" + bybit_native(symbol) +
                                       (order_id.empty() ? "" : "&orderId=" + order_id));
}

ExchangeRequest closed_positions(const std::string& symbol) {
  return get("/v5/position/closed-pnl",
             "category=linear&symbol=" + bybit_native(symbol) + "&limit=20");
}

constexpr TradeAdapter trades = {
    .set_leverage = set_leverage,
    .open = open,
    .close = close,
    .funding = funding,
    .closing_order = closing_order,
    .closed_positions = closed_positions,
    .report_key = "closed_pnl",
    .report_in_steps = false,
};

}  // namespace

constexpr ExchangeAdapter bybit = {
    .id = "bybit",
    .timestamp = epoch_ms_text,
    .sign = sign,
    .balance = balance,
    .position = position,
    .order_status = order_status,
    .cancel_order = cancel_order,
    .trades = &trades,
};

}  // namespace morvane::connector
