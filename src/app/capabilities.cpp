#include "app/capabilities.hpp"

#include "exchanges/catalogue.hpp"

namespace morvane::connector {

std::vector<ExchangeCapabilityMatrix> tolvek_capability_baseline() {
  std::vector<ExchangeCapabilityMatrix> table;
  for (const Exchange& exchange : catalogue()) {
    const bool on = exchange.claimed;
    table.push_back({std::string(exchange.id), on, on, on, on, on, on, on, on, on, on, on, on});
  }
  return table;
}

}  // namespace morvane::connector
