#include "app/capabilities.hpp"

namespace morvane::connector {
namespace {

ExchangeCapabilityMatrix all_flags(const char* exchange, bool on) {
  return {.exchange = exchange,
          .validate = on,
          .balance = on,
          .position = on,
          .open_orders = on,
          .funding = on,
          .close_report = on,
          .open = on,
          .close = on,
          .cancel = on,
          .status = on,
          .leverage_sync = on,
          .margin_mode_sync = on};
}

}  // namespace

std::vector<ExchangeCapabilityMatrix> tolvek_capability_baseline() {
  std::vector<ExchangeCapabilityMatrix> table;
  for (const char* exchange : {"bybit", "okx", "gate", "bingx", "kucoin", "bitget"}) {
    table.push_back(all_flags(exchange, true));
  }
  for (const char* exchange :
       {"hyperliquid", "paradex", "lighter", "extended", "reya", "asterdex"}) {
    table.push_back(all_flags(exchange, false));
  }
  return table;
}

}  // namespace morvane::connector
