#include "exchanges/adapters/adapters.hpp"
#include "hosts.hpp"
#include "net/clock.hpp"
#include "net/digest.hpp"

// OKX, V5 API, USDT-margined swaps. Every request goes to the global site, whichever site the key
// was validated on.
// https://www.okx.com/docs-v5/en/#overview-rest-authentication

namespace morvane::connector {
namespace {

SignedRequest sign(const ExchangeRequest& request, const StoredCredential& credential,
                   const std::string& timestamp) {
  const std::string signature = hmac_sha256_base64(
      credential.api_secret, timestamp + request.method + request.target() + request.body);
  SignedRequest result{
      .method = request.method,
      .url = hosts::okx + request.target(),
      .headers = {"OK-ACCESS-KEY: " + credential.api_key, "OK-ACCESS-SIGN: " + signature,
                  "OK-ACCESS-TIMESTAMP: " + timestamp,
                  "OK-ACCESS-PASSPHRASE: " + credential.passphrase},
      .body = request.body};
  if (request.method == "POST") {
    result.headers.emplace_back("Content-Type: application/json");
  }
  return result;
}

std::string okx_inst_id(const std::string& symbol) {
  const std::size_t suffix = symbol.find("_USDT");
  return suffix == std::string::npos ? symbol : symbol.substr(0, suffix) + "-USDT-SWAP";
}

const char* position_side(const std::string& side) { return side == "buy" ? "long" : "short"; }

ExchangeRequest balance() { return get("/api/v5/account/balance", "ccy=USDT"); }

ExchangeRequest position(const std::string& symbol) {
  return get("/api/v5/account/positions", "instType=SWAP&instId=" + okx_inst_id(symbol));
}

ExchangeRequest order_status(const std::string& symbol, const std::string& order_id) {
  return get("/api/v5/trade/order", "instId=" + okx_inst_id(symbol) + "&ordId=" + order_id);
}

ExchangeRequest cancel_order(const std::string& symbol, const std::string& order_id) {
  return post("/api/v5/trade/cancel-order",
              R"({"instId":")" + okx_inst_id(symbol) + R"(","ordId":")" + order_id + "\"}");
}

ExchangeRequest set_leverage(const std::string& symbol, const std::string& side, int leverage) {
  return post("/api/v5/account/set-leverage",
              R"({"instId":")" + okx_inst_id(symbol) + R"(","lever":")" + std::to_string(leverage) +
                  R"(","mgnMode":"isolated","posSide":")" + position_side(side) + "\"}");
}

ExchangeRequest limit_order(const LimitOrder& order, const std::string& side, const char* tail) {
  return post("/api/v5/trade/order", R"({"instId":")" + okx_inst_id(order.symbol) +
                                         R"(","tdMode":"isolated","posSide":")" +
                                         position_side(order.side) + R"(","side":")" + side +
                                         R"(","ordType":"limit","px":")" + order.price +
                                         R"(","sz":")" + order.quantity + "\"" + tail + "}");
}

// Meant: opening copies the caller's side verbatim, so that OKX and not the connector judges it;
// closing computes the opposite trade.
ExchangeRequest open(const LimitOrder& order) { return limit_order(order, order.side, ""); }

ExchangeRequest close(const LimitOrder& order) {
  return limit_order(order, order.side == "buy" ? "sell" : "buy", R"(,"reduceOnly":true)");
}

// Meant: no start is asked for; the platform reads the latest funding bills whatever the period.
ExchangeRequest funding(const std::string& symbol, int /*lookback_minutes*/,
                        std::int64_t /*now_ms*/) {
  return get("/api/v5/account/bills",
             "instType=SWAP&instId=" + okx_inst_id(symbol) + "&type=8&limit=50");
}

ExchangeRequest closing_order(const std::string& symbol, const std::string& order_id) {
  return get("/api/v5/trade/order",
             "instId=" + okx_inst_id(symbol) + (order_id.empty() ? "" : "&ordId=" + order_id));
}

ExchangeRequest closed_positions(const std::string& symbol) {
  return get("/api/v5/account/positions-history", "instType=SWAP&instId=" + okx_inst_id(symbol));
}

constexpr TradeAdapter trades = {
    .set_leverage = set_leverage,
    .open = open,
    .close = close,
    .funding = funding,
    .closing_order = closing_order,
    .closed_positions = closed_positions,
    .report_key = "positions_history",
    .report_in_steps = false,
};

}  // namespace

constexpr ExchangeAdapter okx = {
    .id = "okx",
    .timestamp = iso8601_now_ms,
    .sign = sign,
    .balance = balance,
    .position = position,
    .order_status = order_status,
    .cancel_order = cancel_order,
    .trades = &trades,
};

}  // namespace morvane::connector
