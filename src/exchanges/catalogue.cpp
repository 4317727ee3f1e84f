#include "exchanges/catalogue.hpp"

namespace morvane::connector {

extern const ExchangeAdapter bybit_adapter, okx_adapter, gate_adapter, bingx_adapter,
    kucoin_adapter, bitget_adapter;

namespace {

constexpr auto exchanges = std::to_array<Exchange>({
    // id, host, adapter, live check, claimed, regional hosts
    {"bybit", "https://api.bybit.com", &bybit_adapter, &ExchangeRegistry::validate_bybit, true},
    {"okx",
     "https://www.okx.com",
     &okx_adapter,
     &ExchangeRegistry::validate_okx,
     true,
     {"https://eea.okx.com", "https://us.okx.com"}},
    {"gate", "https://api.gateio.ws", &gate_adapter, &ExchangeRegistry::validate_gate, true},
    {"bingx", "https://open-api.bingx.com", &bingx_adapter, &ExchangeRegistry::validate_bingx,
     true},
    {"kucoin", "https://api-futures.kucoin.com", &kucoin_adapter,
     &ExchangeRegistry::validate_kucoin, true},
    {"bitget", "https://api.bitget.com", &bitget_adapter, &ExchangeRegistry::validate_bitget, true},
    {"hyperliquid"},
    {"paradex"},
    {"lighter"},
    {"extended"},
    {"reya"},
    {.id = "asterdex", .registered = false},
});

}  // namespace

std::span<const Exchange> catalogue() { return exchanges; }

HttpResult Exchange::call(const ExchangeRequest& request, const StoredCredential& credential,
                          const std::string& timestamp) const {
  Signature signature = adapter->sign(request, credential, timestamp);
  signature.headers.insert(signature.headers.end(), request.extra_headers.begin(),
                           request.extra_headers.end());
  const ShellLine headers = make_headers(signature.headers);
  const std::string url = std::string(host.text()) + request.path +
                          (signature.query.empty() ? "" : "?" + signature.query);
  switch (request.method) {
    case HttpMethod::post:
      return http_post_json(url, request.body, headers);
    case HttpMethod::del:
      return http_delete(url, headers);
    case HttpMethod::get:
      break;
  }
  return http_get(url, headers);
}

const Exchange* find_exchange(std::string_view id) {
  for (const Exchange& exchange : exchanges) {
    if (exchange.id == id) {
      return &exchange;
    }
  }
  return nullptr;
}

}  // namespace morvane::connector
