#include "exchanges/exchange_adapter.hpp"

#include "exchanges/adapters/adapters.hpp"
#include "net/clock.hpp"

namespace morvane::connector {

const ExchangeAdapter* find_adapter(const std::string& exchange) {
  for (const ExchangeAdapter* adapter : {&bybit, &okx, &gate, &bingx, &kucoin, &bitget}) {
    if (adapter->id == exchange) {
      return adapter;
    }
  }
  return nullptr;
}

SignedRequest sign_request(const ExchangeAdapter& adapter, const ExchangeRequest& request,
                           const StoredCredential& credential, const std::string& timestamp) {
  SignedRequest result = adapter.sign(request, credential, timestamp);
  result.headers.insert(result.headers.end(), request.extra_headers.begin(),
                        request.extra_headers.end());
  return result;
}

HttpResult call_exchange(const ExchangeAdapter& adapter, const ExchangeRequest& request,
                         const StoredCredential& credential, const std::string& timestamp) {
  const SignedRequest ready = sign_request(adapter, request, credential, timestamp);
  const std::string headers = make_headers(ready.headers);
  if (ready.method == "POST") {
    return http_post_json(ready.url, ready.body, headers);
  }
  if (ready.method == "DELETE") {
    return http_delete(ready.url, headers);
  }
  return http_get(ready.url, headers);
}

std::string epoch_ms_text() { return std::to_string(epoch_ms()); }

std::string base_asset(const std::string& symbol) { return symbol.substr(0, symbol.find('_')); }

}  // namespace morvane::connector
