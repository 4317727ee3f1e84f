#pragma once

#include <string>

#include "state/key_vault.hpp"

namespace morvane::connector {

// Trades and reports on the exchanges whose adapter has trades. Every operation answers one JSON
// text, as in_frame makes it.
class CexExecutor {
 public:
  // `vault` is borrowed and must outlive the executor.
  explicit CexExecutor(const KeyVault& vault) : vault_(vault) {}

  // Sets the leverage, then places a limit order that opens or adds to a position. `side` is "buy"
  // for long, any other text for short; quantity and price are decimal texts, sent as they stand.
  std::string place_open(const std::string& exchange, const std::string& symbol,
                         const std::string& side, const std::string& quantity,
                         const std::string& price, int leverage) const;

  // Places a reduce-only limit order against the position that was opened with `side`.
  std::string place_close(const std::string& exchange, const std::string& symbol,
                          const std::string& side, const std::string& quantity,
                          const std::string& price) const;

  // The first page of funding entries of the last `lookback_minutes`.
  std::string get_funding(const std::string& exchange, const std::string& symbol,
                          int lookback_minutes) const;

  // The closing order and the exchange's record of closed positions; `order_id` may be empty.
  std::string get_close_report(const std::string& exchange, const std::string& symbol,
                               const std::string& order_id) const;

 private:
  const KeyVault& vault_;
};

}  // namespace morvane::connector
