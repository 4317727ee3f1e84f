#include "exchanges/exchange_adapter.hpp"
#include "exchanges/live_check.hpp"
#include "net/clock.hpp"
#include "net/digest.hpp"
#include "net/text.hpp"

// OKX, V5 API, USDT-margined swaps. Every request goes to the global site, whichever site the key
// was validated on.
// https://www.okx.com/docs-v5/en/#overview-rest-authentication

namespace morvane::connector {
namespace {

Signature sign(const ExchangeRequest& request, const StoredCredential& credential,
               const std::string& timestamp) {
  const std::string digest = hmac_sha256_base64(
      credential.api_secret, timestamp + request.verb() + request.target() + request.body);
  Signature signature{
      {"OK-ACCESS-KEY: " + credential.api_key, "OK-ACCESS-SIGN: " + digest,
       "OK-ACCESS-TIMESTAMP: " + timestamp, "OK-ACCESS-PASSPHRASE: " + credential.passphrase},
      request.query};
  if (request.method == HttpMethod::post) {
    signature.headers.emplace_back("Content-Type: application/json");
  }
  return signature;
}

std::string okx_inst_id(const std::string& symbol) {
  const std::size_t suffix = symbol.find("_USDT");
  return suffix == std::string::npos ? symbol : symbol.substr(0, suffix) + "-USDT-SWAP";
}

const char* position_side(const LimitOrder& order) { return order.is_long() ? "long" : "short"; }

ExchangeRequest limit_order(const LimitOrder& order, const std::string& side, const char* tail) {
  return post_request(
      "/api/v5/trade/order",
      filled(R"({"instId":"@","tdMode":"isolated","posSide":"@","side":"@","ordType":"limit",)"
             R"("px":"@","sz":"@"@})",
             okx_inst_id(order.symbol), position_side(order), side, order.price, order.quantity,
             tail));
}

constexpr TradeAdapter trades = {
    .set_leverage =
        [](const LimitOrder& order, int leverage) {
          return post_request(
              "/api/v5/account/set-leverage",
              filled(R"({"instId":"@","lever":"@","mgnMode":"isolated","posSide":"@"})",
                     okx_inst_id(order.symbol), std::to_string(leverage), position_side(order)));
        },
    // Meant: opening copies the caller's side verbatim; closing computes the opposite trade.
    .open = [](const LimitOrder& order) { return limit_order(order, order.side, ""); },
    .close =
        [](const LimitOrder& order) {
          return limit_order(order, order.is_long() ? "sell" : "buy", R"(,"reduceOnly":true)");
        },
    // Meant: no start is asked for, whatever the look-back.
    .funding =
        [](const std::string& symbol, int /*lookback_minutes*/, std::int64_t /*now_ms*/) {
          return get_request("/api/v5/account/bills",
                             "instType=SWAP&instId=" + okx_inst_id(symbol) + "&type=8&limit=50");
        },
    .closing_order =
        [](const std::string& symbol, const std::string& order_id) {
          return get_request(
              "/api/v5/trade/order",
              "instId=" + okx_inst_id(symbol) + (order_id.empty() ? "" : "&ordId=" + order_id));
        },
    .closed_positions =
        [](const std::string& symbol) {
          return get_request("/api/v5/account/positions-history",
                             "instType=SWAP&instId=" + okx_inst_id(symbol));
        },
    .report_key = "positions_history",
};

}  // namespace

extern constexpr ExchangeAdapter okx_adapter = {
    .timestamp = iso8601_now_ms,
    .sign = sign,
    .balance = [] { return get_request("/api/v5/account/balance", "ccy=USDT"); },
    .position =
        [](const std::string& symbol) {
          return get_request("/api/v5/account/positions",
                             "instType=SWAP&instId=" + okx_inst_id(symbol));
        },
    .order_status =
        [](const std::string& symbol, const std::string& order_id) {
          return get_request("/api/v5/trade/order",
                             "instId=" + okx_inst_id(symbol) + "&ordId=" + order_id);
        },
    .cancel_order =
        [](const std::string& symbol, const std::string& order_id) {
          return post_request("/api/v5/trade/cancel-order", filled(R"({"instId":"@","ordId":"@"})",
                                                                   okx_inst_id(symbol), order_id));
        },
    // The probe asks every site on three paths.
    .live_check =
        [](const Exchange& exchange, const ValidateCredentialsRequest& request) {
          return run_probe(
              exchange, request,
              {.script = probe_scripts::okx,
               .needs_passphrase = true,
               .nothing_printed = "failed to execute okx validation probes",
               .evidence = {R"("code":"0")", R"("code": "0")", R"(\"code\":\"0\")", R"("posMode")",
                            R"("acctLv")", R"("details")", R"("availBal")", R"("availEq")"}});
        },
    .trades = &trades,
};

}  // namespace morvane::connector
