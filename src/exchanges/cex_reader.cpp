#include "exchanges/cex_reader.hpp"

#include "exchanges/catalogue.hpp"
#include "net/json.hpp"

namespace morvane::connector {
namespace {

// The frame of every operation. `order_id` is null for those that take none; `build` makes the
// request from the exchange's adapter.
template <typename Build>
std::string ask(const KeyVault& vault, const std::string& exchange, const char* kind,
                const std::string* order_id, Build build) {
  const auto credential = vault.load(exchange);
  if (!credential) {
    return fail_json("credentials_not_found");
  }
  if (order_id != nullptr && order_id->empty()) {
    return fail_json("missing_order_id");
  }
  const Exchange* found = find_exchange(exchange);
  if (found == nullptr || found->adapter == nullptr) {
    return fail_json("unsupported_exchange");
  }
  const ExchangeAdapter& adapter = *found->adapter;
  const HttpResult answer = found->call(build(adapter), *credential, adapter.timestamp());
  return answer.exit_code == 0 ? ok_json(exchange, kind, answer.body) : fail_json("http_failed");
}

}  // namespace

CexReader::CexReader(const KeyVault& vault) : vault_(vault) {}

std::string CexReader::get_balance(const std::string& exchange) const {
  return ask(vault_, exchange, "balance", nullptr,
             [](const ExchangeAdapter& adapter) { return adapter.balance(); });
}

std::string CexReader::get_position(const std::string& exchange, const std::string& symbol) const {
  return ask(vault_, exchange, "position", nullptr,
             [&](const ExchangeAdapter& adapter) { return adapter.position(symbol); });
}

std::string CexReader::get_order_status(const std::string& exchange, const std::string& symbol,
                                        const std::string& order_id) const {
  return ask(vault_, exchange, "order_status", &order_id, [&](const ExchangeAdapter& adapter) {
    return adapter.order_status(symbol, order_id);
  });
}

std::string CexReader::cancel_order(const std::string& exchange, const std::string& symbol,
                                    const std::string& order_id) const {
  return ask(vault_, exchange, "cancel_order", &order_id, [&](const ExchangeAdapter& adapter) {
    return adapter.cancel_order(symbol, order_id);
  });
}

}  // namespace morvane::connector
