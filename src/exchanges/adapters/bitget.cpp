#include "exchanges/exchange_adapter.hpp"
#include "exchanges/live_check.hpp"
#include "net/clock.hpp"
#include "net/digest.hpp"
#include "net/text.hpp"

// Bitget, API v2, USDT-M futures ("mix" endpoints).
// https://www.bitget.com/api-doc/common/signature

namespace morvane::connector {
namespace {

Signature sign(const ExchangeRequest& request, const StoredCredential& credential,
               const std::string& timestamp) {
  const std::string text = timestamp + request.verb() + request.target() + request.body;
  return {{"ACCESS-KEY: " + credential.api_key,
           "ACCESS-SIGN: " + hmac_sha256_base64(credential.api_secret, text),
           "ACCESS-TIMESTAMP: " + timestamp, "ACCESS-PASSPHRASE: " + credential.passphrase,
           "Content-Type: application/json"},
          request.query};
}

// Meant: unguarded, BTCUSDT becomes BTCUSDTUSDT.
std::string bitget_symbol(const std::string& symbol) { return base_asset(symbol) + "USDT"; }

}  // namespace

extern constexpr ExchangeAdapter bitget_adapter = {
    .timestamp = epoch_ms_text,
    .sign = sign,
    // Meant: the balance alone names a language and a channel code.
    .balance = []() -> ExchangeRequest {
      return {.path = "/api/v2/mix/account/accounts",
              .query = "productType=USDT-FUTURES",
              .extra_headers = {"locale: en-US", "X-CHANNEL-API-CODE: qzvtk"}};
    },
    .position =
        [](const std::string& symbol) {
          return get_request(
              "/api/v2/mix/position/single-position",
              filled("symbol=@&productType=USDT-FUTURES&marginCoin=USDT", bitget_symbol(symbol)));
        },
    .order_status =
        [](const std::string& symbol, const std::string& order_id) {
          return get_request("/api/v2/mix/order/detail",
                             filled("symbol=@&productType=USDT-FUTURES&orderId=@",
                                    bitget_symbol(symbol), order_id));
        },
    .cancel_order =
        [](const std::string& symbol, const std::string& order_id) {
          return post_request("/api/v2/mix/order/cancel-order",
                              filled(R"({"symbol":"@","productType":"USDT-FUTURES","orderId":"@"})",
                                     bitget_symbol(symbol), order_id));
        },
    // The probe asks once and prints the answer as it came.
    .live_check =
        [](const Exchange& exchange, const ValidateCredentialsRequest& request) {
          return run_probe(exchange, request,
                           {.script = probe_scripts::bitget,
                            .needs_passphrase = true,
                            .nothing_printed = "failed to execute bitget validation probe",
                            .evidence = {R"("code":"00000")", R"("available")", R"("marginCoin")",
                                         R"("accountEquity")"}});
        },
};

}  // namespace morvane::connector
