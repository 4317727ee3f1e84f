#include "exchanges/cex_reader.hpp"

#include <utility>

#include "exchanges/exchange_adapter.hpp"
#include "exchanges/json_envelope.hpp"

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
  const ExchangeAdapter* adapter = find_adapter(exchange);
  if (adapter == nullptr) {
    return fail_json("unsupported_exchange");
  }
  HttpResult answer = call_exchange(*adapter, build(*adapter), *credential, adapter->timestamp());
  if (answer.exit_code != 0) {
    return fail_json("http_failed");
  }
  return ok_json(exchange, kind, std::move(answer.body));
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
