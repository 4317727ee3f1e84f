#include "exchanges/request_frame.hpp"

#include "net/clock.hpp"
#include "net/json.hpp"

namespace morvane::connector {

HttpResult call_exchange(const Exchange& exchange, const ExchangeRequest& request,
                         const StoredCredential& credential, const std::string& timestamp) {
  Signature signature = exchange.adapter->sign(request, credential, timestamp);
  signature.headers.insert(signature.headers.end(), request.extra_headers.begin(),
                           request.extra_headers.end());
  const std::string headers = make_headers(signature.headers);
  const std::string url = std::string(exchange.host.text()) + request.path +
                          (signature.query.empty() ? "" : "?" + signature.query);
  switch (request.method) {
    case HttpMethod::get:
      return http_get(url, headers);
    case HttpMethod::del:
      return http_delete(url, headers);
    case HttpMethod::post:
      break;
  }
  return http_post_json(url, request.body, headers);
}

std::string ok_json(const std::string& exchange, const std::string& kind, const std::string& body) {
  return json_object({{"status", json_raw("ok")},
                      {"exchange", json_raw(exchange)},
                      {"kind", json_raw(kind)},
                      {"body", body}});
}

std::string epoch_ms_text() { return std::to_string(epoch_ms()); }

std::string base_asset(const std::string& symbol) { return symbol.substr(0, symbol.find('_')); }

}  // namespace morvane::connector
