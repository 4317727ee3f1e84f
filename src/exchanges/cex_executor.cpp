#include "exchanges/cex_executor.hpp"

#include <optional>
#include <utility>

#include "exchanges/catalogue.hpp"
#include "net/clock.hpp"
#include "net/json.hpp"

namespace morvane::connector {
namespace {

// One exchange with the credential to trade on it.
struct Desk {
  const Exchange& exchange;
  const TradeAdapter& trades;
  const StoredCredential& credential;

  std::string timestamp() const { return exchange.adapter->timestamp(); }
  HttpResult call(const ExchangeRequest& request, const std::string& at) const {
    return exchange.call(request, credential, at);
  }
  HttpResult call(const ExchangeRequest& request) const { return call(request, timestamp()); }
};

// The frame of every operation. `work` makes its requests at the desk and returns the body of the
// report, or nothing when curl failed.
template <typename Work>
std::string trade(const KeyVault& vault, const std::string& exchange, const char* kind, Work work) {
  const auto credential = vault.load(exchange);
  if (!credential) {
    return fail_json("credentials_not_found");
  }
  const Exchange* found = find_exchange(exchange);
  if (found == nullptr || found->adapter == nullptr || found->adapter->trades == nullptr) {
    return fail_json("unsupported_exchange");
  }
  const std::optional<std::string> body = work(Desk{*found, *found->adapter->trades, *credential});
  return body ? ok_json(exchange, kind, *body) : fail_json("http_failed");
}

std::optional<std::string> body_of(HttpResult answer) {
  if (answer.exit_code != 0) {
    return std::nullopt;
  }
  return std::move(answer.body);
}

// The two halves of a close report, at once or in steps.
std::optional<std::string> close_report(const Desk& desk, const std::string& symbol,
                                        const std::string& order_id) {
  const bool in_steps = desk.trades.report_in_steps;
  const std::string timestamp = desk.timestamp();
  HttpResult order{.exit_code = 0, .body = "{}"};
  if (!in_steps || !order_id.empty()) {
    order = desk.call(desk.trades.closing_order(symbol, order_id), timestamp);
  }
  if (in_steps && order.exit_code != 0) {
    return std::nullopt;
  }
  const HttpResult report =
      desk.call(desk.trades.closed_positions(symbol), in_steps ? timestamp : desk.timestamp());
  if (order.exit_code != 0 || report.exit_code != 0) {
    return std::nullopt;
  }
  return json_object({{"order", order.body}, {desk.trades.report_key, report.body}});
}

}  // namespace

CexExecutor::CexExecutor(const KeyVault& vault) : vault_(vault) {}

std::string CexExecutor::place_open(const std::string& exchange, const std::string& symbol,
                                    const std::string& side, const std::string& quantity,
                                    const std::string& price, int leverage) const {
  return trade(vault_, exchange, "place_open", [&](const Desk& desk) -> std::optional<std::string> {
    const LimitOrder order{symbol, side, quantity, price};
    const HttpResult set = desk.call(desk.trades.set_leverage(order, leverage));
    // Meant: the order goes out whatever came of the leverage.
    const HttpResult place = desk.call(desk.trades.open(order));
    if (set.exit_code != 0 || place.exit_code != 0) {
      return std::nullopt;
    }
    return json_object({{"leverage", set.body}, {"place", place.body}});
  });
}

std::string CexExecutor::place_close(const std::string& exchange, const std::string& symbol,
                                     const std::string& side, const std::string& quantity,
                                     const std::string& price) const {
  return trade(vault_, exchange, "place_close", [&](const Desk& desk) {
    return body_of(desk.call(desk.trades.close({symbol, side, quantity, price})));
  });
}

std::string CexExecutor::get_funding(const std::string& exchange, const std::string& symbol,
                                     int lookback_minutes) const {
  return trade(vault_, exchange, "funding", [&](const Desk& desk) {
    // The clock is read twice: for the signature first, then for the start of the period.
    const std::string timestamp = desk.timestamp();
    return body_of(desk.call(desk.trades.funding(symbol, lookback_minutes, epoch_ms()), timestamp));
  });
}

std::string CexExecutor::get_close_report(const std::string& exchange, const std::string& symbol,
                                          const std::string& order_id) const {
  return trade(vault_, exchange, "close_report",
               [&](const Desk& desk) { return close_report(desk, symbol, order_id); });
}

}  // namespace morvane::connector
