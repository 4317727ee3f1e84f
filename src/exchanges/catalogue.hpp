#pragma once

#include <array>
#include <span>
#include <string_view>

#include "exchanges/exchange_adapter.hpp"
#include "net/shell.hpp"

namespace morvane::connector {

// One exchange by name. Its requests, its live check and its probe stand in its own files in
// exchanges/adapters.
struct Exchange {
  std::string_view id;
  Literal host = "";  // scheme and name, as its public REST documentation gives them
  const ExchangeAdapter* adapter = nullptr;          // null where there is none yet
  bool claimed = false;                              // what capabilities says of every operation
  std::array<Literal, 2> regional_hosts = {"", ""};  // where the live check asks too
  bool registered = true;  // false for a name of the table of claims alone
};

// Every exchange by name, in the order in which they are shown.
std::span<const Exchange> catalogue();

// The one of exactly this id, or null.
const Exchange* exchange_named(std::string_view id);

}  // namespace morvane::connector
