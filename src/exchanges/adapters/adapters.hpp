#pragma once

#include "exchanges/exchange_adapter.hpp"

namespace morvane::connector {

// One per file of this folder.
extern const ExchangeAdapter bybit, okx, gate, bingx, kucoin, bitget;

}  // namespace morvane::connector
