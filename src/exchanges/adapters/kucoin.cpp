#include "exchanges/exchange_adapter.hpp"
#include "exchanges/live_check.hpp"
#include "net/clock.hpp"
#include "net/digest.hpp"

// KuCoin Futures, USDT-margined perpetuals. The passphrase is sent signed, as keys of version 2
// want it.
// https://www.kucoin.com/docs-new/authentication

namespace morvane::connector {
namespace {

Signature sign(const ExchangeRequest& request, const StoredCredential& credential,
               const std::string& timestamp) {
  const std::string text = timestamp + request.verb() + request.target() + request.body;
  const std::string& secret = credential.api_secret;
  return {{"KC-API-KEY: " + credential.api_key, "KC-API-SIGN: " + hmac_sha256_base64(secret, text),
           "KC-API-TIMESTAMP: " + timestamp,
           "KC-API-PASSPHRASE: " + hmac_sha256_base64(secret, credential.passphrase),
           "KC-API-KEY-VERSION: 2"},
          request.query};
}

// KuCoin's contracts end in USDTM, and its Bitcoin is XBT. Meant: unguarded, ETHUSDT becomes
// ETHUSDTUSDTM.
std::string kucoin_symbol(const std::string& symbol) {
  const std::string base = symbol.substr(0, symbol.find("_USDT"));
  return (base == "BTC" ? "XBT" : base) + "USDTM";
}

}  // namespace

extern constexpr ExchangeAdapter kucoin_adapter = {
    .timestamp = epoch_ms_text,
    .sign = sign,
    .balance = [] { return get_request("/api/v1/account-overview", "currency=USDT"); },
    .position =
        [](const std::string& symbol) {
          return get_request("/api/v1/position", "symbol=" + kucoin_symbol(symbol));
        },
    // An order is found by its id alone.
    .order_status =
        [](const std::string& /*symbol*/, const std::string& order_id) {
          return get_request("/api/v1/orders/" + order_id);
        },
    .cancel_order =
        [](const std::string& /*symbol*/, const std::string& order_id) {
          return delete_request("/api/v1/orders/" + order_id);
        },
    // The probe asks with key version 2 and with 3.
    .live_check =
        [](const Exchange& exchange, const ValidateCredentialsRequest& request) {
          return run_probe(exchange, request,
                           {.script = probe_scripts::kucoin,
                            .needs_passphrase = true,
                            .nothing_printed = "failed to execute kucoin validation probes",
                            .evidence = {R"("code":"200000")", R"(\"code\":\"200000\")",
                                         R"("availableBalance")", R"("accountEquity")"}});
        },
};

}  // namespace morvane::connector
