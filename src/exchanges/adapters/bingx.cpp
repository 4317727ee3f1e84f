#include "exchanges/exchange_adapter.hpp"
#include "exchanges/live_check.hpp"
#include "net/clock.hpp"
#include "net/digest.hpp"

// BingX, USDT-M perpetual swaps. Parameters and signature travel in the query, for every method.
// https://bingx-api.github.io/docs/#/en-us/swapV2/authentication.html

namespace morvane::connector {
namespace {

Signature sign(const ExchangeRequest& request, const StoredCredential& credential,
               const std::string& timestamp) {
  const std::string query =
      request.query + (request.query.empty() ? "" : "&") + "timestamp=" + timestamp;
  return {{"X-BX-APIKEY: " + credential.api_key},
          query + "&signature=" + hmac_sha256_hex(credential.api_secret, query)};
}

std::string bingx_symbol(std::string symbol) {
  const std::size_t separator = symbol.find('_');
  if (separator != std::string::npos) {
    symbol[separator] = '-';
  }
  return symbol;
}

std::string order_query(const std::string& symbol, const std::string& order_id) {
  return "symbol=" + bingx_symbol(symbol) + "&orderId=" + order_id;
}

}  // namespace

extern constexpr ExchangeAdapter bingx_adapter = {
    .timestamp = epoch_ms_text,
    .sign = sign,
    .balance = [] { return get_request("/openApi/swap/v2/user/balance"); },
    .position =
        [](const std::string& symbol) {
          return get_request("/openApi/swap/v2/user/positions", "symbol=" + bingx_symbol(symbol));
        },
    .order_status =
        [](const std::string& symbol, const std::string& order_id) {
          return get_request("/openApi/swap/v2/trade/order", order_query(symbol, order_id));
        },
    .cancel_order =
        [](const std::string& symbol, const std::string& order_id) {
          return delete_request("/openApi/swap/v2/trade/order", order_query(symbol, order_id));
        },
    // The probe asks two versions of one endpoint.
    .live_check =
        [](const Exchange& exchange, const ValidateCredentialsRequest& request) {
          return run_probe(
              exchange, request,
              {.script = probe_scripts::bingx,
               .needs_passphrase = false,
               .nothing_printed = "failed to execute bingx validation probes",
               .evidence = {R"("code":0)", R"("code": 0)", R"(\"code\":0)", R"(\"code\": 0)",
                            R"("balance")", R"("equity")", "availableMargin"}});
        },
};

}  // namespace morvane::connector
