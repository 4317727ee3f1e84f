#include "exchanges/cex_executor.hpp"

#include <utility>

#include "exchanges/request_frame.hpp"
#include "net/clock.hpp"
#include "net/json.hpp"

namespace morvane::connector {
namespace {

std::string trade(const KeyVault& vault, const std::string& exchange, const char* kind,
                  const Work& work) {
  return in_frame(vault, exchange, {.kind = kind, .trades = true}, work);
}

// The answers to two requests as one body; nothing when one of them is missing.
Answer both(const char* name, Answer answer, const char* other_name, Answer other) {
  if (!answer || !other) {
    return std::nullopt;
  }
  return json_object({{name, std::move(*answer)}, {other_name, std::move(*other)}});
}

Answer close_report(const Account& account, const std::string& symbol,
                    const std::string& order_id) {
  const TradeAdapter& trades = account.trades();
  const std::string timestamp = account.timestamp();
  Answer order = "{}";
  if (!trades.order_asked_only_with_id || !order_id.empty()) {
    order = account.send(trades.closing_order(symbol, order_id), timestamp);
  }
  if (!order && trades.failed_order_ends_report) {
    return std::nullopt;
  }
  Answer report = account.send(trades.closed_positions(symbol),
                               trades.report_has_one_timestamp ? timestamp : account.timestamp());
  return both("order", std::move(order), trades.report_key, std::move(report));
}

}  // namespace

std::string CexExecutor::place_open(const std::string& exchange, const std::string& symbol,
                                    const std::string& side, const std::string& quantity,
                                    const std::string& price, int leverage) const {
  const LimitOrder order{symbol, side, quantity, price};
  return trade(vault_, exchange, "place_open", [&](const Account& account) {
    auto set = account.send(account.trades().set_leverage(order, leverage));
    // Meant: the order goes out whatever came of the leverage.
    auto place = account.send(account.trades().open(order));
    return both("leverage", std::move(set), "place", std::move(place));
  });
}

std::string CexExecutor::place_close(const std::string& exchange, const std::string& symbol,
                                     const std::string& side, const std::string& quantity,
                                     const std::string& price) const {
  return trade(vault_, exchange, "place_close", [&](const Account& account) {
    return account.send(account.trades().close({symbol, side, quantity, price}));
  });
}

std::string CexExecutor::get_funding(const std::string& exchange, const std::string& symbol,
                                     int lookback_minutes) const {
  return trade(vault_, exchange, "funding", [&](const Account& account) {
    // The clock is read twice: for the signature first, then for the start of the period.
    const std::string timestamp = account.timestamp();
    const TradeAdapter& trades = account.trades();
    return account.send(trades.funding(symbol, lookback_minutes, epoch_ms()), timestamp);
  });
}

std::string CexExecutor::get_close_report(const std::string& exchange, const std::string& symbol,
                                          const std::string& order_id) const {
  return trade(vault_, exchange, "close_report",
               [&](const Account& account) { return close_report(account, symbol, order_id); });
}

}  // namespace morvane::connector
