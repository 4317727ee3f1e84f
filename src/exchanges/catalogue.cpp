#include "exchanges/catalogue.hpp"

namespace morvane::connector {

extern const ExchangeAdapter bybit_adapter, okx_adapter, gate_adapter, bingx_adapter,
    kucoin_adapter, bitget_adapter;

namespace {

constexpr auto exchanges = std::to_array<Exchange>({
    // id, host, adapter, claimed, regional hosts
    {"bybit", "https://api.bybit.com", &bybit_adapter, true},
    {"okx",
     "https://www.okx.com",
     &okx_adapter,
     true,
     {"https://eea.okx.com", "https://us.okx.com"}},
    {"gate", "https://api.gateio.ws", &gate_adapter, true},
    {"bingx", "https://open-api.bingx.com", &bingx_adapter, true},
    {"kucoin", "https://api-futures.kucoin.com", &kucoin_adapter, true},
    {"bitget", "https://api.bitget.com", &bitget_adapter, true},
    {"hyperliquid"},
    {"paradex"},
    {"lighter"},
    {"extended"},
    {"reya"},
    {.id = "asterdex", .registered = false},
});

}  // namespace

std::span<const Exchange> catalogue() { return exchanges; }

const Exchange* exchange_named(std::string_view id) {
  for (const Exchange& exchange : exchanges) {
    if (exchange.id == id) {
      return &exchange;
    }
  }
  return nullptr;
}

}  // namespace morvane::connector
