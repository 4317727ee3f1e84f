#include "exchanges/exchange_adapter.hpp"
#include "exchanges/live_check.hpp"
#include "net/clock.hpp"
#include "net/digest.hpp"
#include "net/text.hpp"

// Bybit, V5 API, unified account, linear USDT perpetuals.
// https://bybit-exchange.github.io/docs/v5/guide#authentication

namespace morvane::connector {
namespace {

constexpr const char* receive_window = "5000";

std::string pre_hash(const ExchangeRequest& request, const std::string& api_key,
                     const std::string& timestamp) {
  const bool has_body = request.method == HttpMethod::post;
  return timestamp + api_key + receive_window + (has_body ? request.body : request.query);
}

std::vector<std::string> headers(const std::string& api_key, const std::string& timestamp,
                                 const std::string& signature) {
  return {"X-BAPI-API-KEY: " + api_key, "X-BAPI-TIMESTAMP: " + timestamp,
          std::string("X-BAPI-RECV-WINDOW: ") + receive_window, "X-BAPI-SIGN: " + signature};
}

Signature sign(const ExchangeRequest& request, const StoredCredential& credential,
               const std::string& timestamp) {
  const std::string digest =
      hmac_sha256_hex(credential.api_secret, pre_hash(request, credential.api_key, timestamp));
  Signature signature{headers(credential.api_key, timestamp, digest), request.query};
  if (request.method == HttpMethod::post) {
    signature.headers.emplace_back("Content-Type: application/json");
  }
  return signature;
}

// Meant: reads and cancels map without a guard (BTCUSDT becomes BTCUSDTUSDT), trades with one.
std::string unguarded_symbol(const std::string& symbol) { return base_asset(symbol) + "USDT"; }

std::string bybit_native(const std::string& symbol) {
  return symbol.find('_') == std::string::npos ? symbol : base_asset(symbol) + "USDT";
}

std::string linear(const std::string& symbol) { return "category=linear&symbol=" + symbol; }

ExchangeRequest limit_order(const LimitOrder& order, const char* side, const char* tail) {
  return post_request(
      "/v5/order/create",
      filled(R"({"category":"linear","symbol":"@","side":"@","orderType":"Limit","qty":"@",)"
             R"("price":"@","timeInForce":"GTC"@})",
             bybit_native(order.symbol), side, order.quantity, order.price, tail));
}

constexpr TradeAdapter trades = {
    .set_leverage =
        [](const LimitOrder& order, int leverage) {
          const std::string value = std::to_string(leverage);
          return post_request(
              "/v5/position/set-leverage",
              filled(R"({"category":"linear","symbol":"@","buyLeverage":"@","sellLeverage":"@"})",
                     bybit_native(order.symbol), value, value));
        },
    .open =
        [](const LimitOrder& order) {
          return limit_order(order, order.is_long() ? "Buy" : "Sell", "");
        },
    .close =
        [](const LimitOrder& order) {
          return limit_order(order, order.is_long() ? "Sell" : "Buy", R"(,"reduceOnly":true)");
        },
    .funding =
        [](const std::string& symbol, int lookback_minutes, std::int64_t now_ms) {
          const std::int64_t start_ms = now_ms - std::int64_t{lookback_minutes} * 60 * 1000;
          return get_request("/v5/account/transaction-log",
                             filled("@&startTime=@&limit=50", linear(bybit_native(symbol)),
                                    std::to_string(start_ms)));
        },
    .closing_order =
        [](const std::string& symbol, const std::string& order_id) {
          return get_request(
              "/v5/order/realtime",
              linear(bybit_native(symbol)) + (order_id.empty() ? "" : "&orderId=" + order_id));
        },
    .closed_positions =
        [](const std::string& symbol) {
          return get_request("/v5/position/closed-pnl", linear(bybit_native(symbol)) + "&limit=20");
        },
    .report_key = "closed_pnl",
};

ValidateCredentialsResult check(const Exchange& exchange,
                                const ValidateCredentialsRequest& request) {
  const StoredCredential& credential = request.credential;
  const std::string timestamp = epoch_ms_text();
  const CommandOutput digest =
      hmac_hex("sha256", "256", credential.api_secret, pre_hash({}, credential.api_key, timestamp));
  if (digest.exit_code != 0) {
    return error_result(request, "failed to build bybit signature: " + trim(digest.output),
                        iso8601_now());
  }
  const CommandOutput answer = ask_directly(
      exchange, "/v5/user/query-api", headers(credential.api_key, timestamp, trim(digest.output)));
  const std::string checked_at = iso8601_now();
  if (answer.exit_code != 0) {
    return error_result(request, "bybit request failed: " + trim(answer.output), checked_at);
  }
  if (!contains_any(answer.output, {R"("retCode":0)", R"("retCode": 0)"})) {
    return invalid_result(request, "bybit rejected credentials: " + trim(answer.output),
                          checked_at);
  }
  // Meant: any occurrence of these words grants.
  return success_result(request, contains_any(answer.output, {"Order", "order"}),
                        contains(answer.output, "Withdraw"), "live bybit auth validated",
                        checked_at);
}

}  // namespace

extern constexpr ExchangeAdapter bybit_adapter = {
    .timestamp = epoch_ms_text,
    .sign = sign,
    .balance = [] { return get_request("/v5/account/wallet-balance", "accountType=UNIFIED"); },
    .position =
        [](const std::string& symbol) {
          return get_request("/v5/position/list",
                             linear(unguarded_symbol(symbol)) + "&settleCoin=USDT");
        },
    .order_status =
        [](const std::string& symbol, const std::string& order_id) {
          return get_request("/v5/order/realtime",
                             linear(unguarded_symbol(symbol)) + "&orderId=" + order_id);
        },
    .cancel_order =
        [](const std::string& symbol, const std::string& order_id) {
          return post_request("/v5/order/cancel",
                              filled(R"({"category":"linear","symbol":"@","orderId":"@"})",
                                     unguarded_symbol(symbol), order_id));
        },
    .live_check = check,
    .trades = &trades,
};

}  // namespace morvane::connector
