#include "exchanges/cex_reader.hpp"

#include "exchanges/request_frame.hpp"

namespace morvane::connector {

std::string CexReader::get_balance(const std::string& exchange) const {
  return in_frame(vault_, exchange, {"balance"},
                  [](const Account& account) { return account.send(account.adapter().balance()); });
}

std::string CexReader::get_position(const std::string& exchange, const std::string& symbol) const {
  return in_frame(vault_, exchange, {"position"}, [&](const Account& account) {
    return account.send(account.adapter().position(symbol));
  });
}

std::string CexReader::get_order_status(const std::string& exchange, const std::string& symbol,
                                        const std::string& order_id) const {
  return in_frame(vault_, exchange, {"order_status", &order_id}, [&](const Account& account) {
    return account.send(account.adapter().order_status(symbol, order_id));
  });
}

std::string CexReader::cancel_order(const std::string& exchange, const std::string& symbol,
                                    const std::string& order_id) const {
  return in_frame(vault_, exchange, {"cancel_order", &order_id}, [&](const Account& account) {
    return account.send(account.adapter().cancel_order(symbol, order_id));
  });
}

}  // namespace morvane::connector
