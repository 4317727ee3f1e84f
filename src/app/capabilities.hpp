#pragma once

#include <string>
#include <vector>

#include "exchanges/catalogue.hpp"

namespace morvane::connector {

// What the connector claims to do on one exchange.
struct ExchangeCapabilityMatrix {
  std::string exchange;
  bool validate;
  bool balance;
  bool position;
  bool open_orders;  // kept in the record, never printed
  bool funding;
  bool close_report;
  bool open;
  bool close;
  bool cancel;
  bool status;
  bool leverage_sync;
  bool margin_mode_sync;
};

// One row per exchange of the catalogue, with every flag as it is claimed there. Meant: trading is
// claimed for six exchanges although three of them answer "unsupported_exchange".
inline std::vector<ExchangeCapabilityMatrix> tolvek_capability_baseline() {
  std::vector<ExchangeCapabilityMatrix> table;
  for (const Exchange& exchange : catalogue()) {
    const bool on = exchange.claimed;
    table.push_back({std::string(exchange.id), on, on, on, on, on, on, on, on, on, on, on, on});
  }
  return table;
}

}  // namespace morvane::connector
