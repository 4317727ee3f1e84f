#include "exchanges/request_frame.hpp"

#include <utility>

#include "net/http.hpp"
#include "net/json.hpp"

namespace morvane::connector {

Answer Account::send(const ExchangeRequest& request, const std::string& at) const {
  Signature signature = adapter().sign(request, credential, at);
  signature.headers.insert(signature.headers.end(), request.extra_headers.begin(),
                           request.extra_headers.end());
  const std::string url = std::string(exchange.host.text()) + request.path +
                          (signature.query.empty() ? "" : "?" + signature.query);
  const ShellLine headers = make_headers(signature.headers);
  HttpResult answer = request.method == HttpMethod::get ? http_get(url, headers)
                      : request.method == HttpMethod::post
                          ? http_post_json(url, request.body, headers)
                          : http_delete(url, headers);
  if (answer.exit_code != 0) {
    return std::nullopt;
  }
  return std::move(answer.body);
}

std::string in_frame(const KeyVault& vault, const std::string& exchange, const Operation& operation,
                     const Work& work) {
  const auto credential = vault.load(exchange);
  if (!credential) {
    return fail_json("credentials_not_found");
  }
  if (operation.order_id != nullptr && operation.order_id->empty()) {
    return fail_json("missing_order_id");
  }
  const Exchange* found = exchange_named(exchange);
  if (found == nullptr || found->adapter == nullptr ||
      (operation.trades && found->adapter->trades == nullptr)) {
    return fail_json("unsupported_exchange");
  }
  Answer body = work({*found, *credential});
  return body ? ok_json(exchange, operation.kind, std::move(*body)) : fail_json("http_failed");
}

}  // namespace morvane::connector
