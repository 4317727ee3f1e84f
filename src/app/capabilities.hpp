#pragma once

#include <string>
#include <vector>

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

// The fixed table of twelve exchanges: six with every flag set, then six with none. Meant: trading
// is claimed for all six although three answer "unsupported_exchange"; the platform reads the
// claim as which exchanges it may offer and the answer as what this release does.
std::vector<ExchangeCapabilityMatrix> tolvek_capability_baseline();

}  // namespace morvane::connector
