#include "exchanges/catalogue.hpp"

namespace morvane::connector {

extern const ExchangeAdapter bybit_adapter, okx_adapter, gate_adapter, bingx_adapter,
    kucoin_adapter, bitget_adapter;

namespace {

constexpr auto exchanges = std::to_array<Exchange>({
    // id, host, adapter, live check, claimed, regional hosts
    {"bybit", "https://api.bybit.com", &bybit_adapter, &ExchangeRegistry::validate_bybit, true},
    {"okx",
     "https://www.okx.com",
     &okx_adapter,
     &ExchangeRegistry::validate_okx,
     true,
     {"https://eea.okx.com", "https://us.okx.com"}},
    {"gate", "https://api.gateio.ws", &gate_adapter, &ExchangeRegistry::validate_gate, true},
    {"bingx", "https://open-api.bingx.com", &bingx_adapter, &ExchangeRegistry::validate_bingx,
     true},
    {"kucoin", "https://api-futures.kucoin.com", &kucoin_adapter,
     &ExchangeRegistry::validate_kucoin, true},
    {"bitget", "https://api.bitget.com", &bitget_adapter, &ExchangeRegistry::validate_bitget, true},
    {"hyperliquid"},
    {"paradex"},
    {"lighter"},
    {"extended"},
    {"reya"},
    {.id = "asterdex", .registered = false},
});

}  // namespace

std::span<const Exchange> catalogue() { return exchanges; }

const Exchange* find_exchange(std::string_view id) {
  for (const Exchange& exchange : exchanges) {
    if (exchange.id == id) {
      return &exchange;
    }
  }
  return nullptr;
}

}  // namespace morvane::connector
