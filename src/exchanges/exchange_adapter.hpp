#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "exchanges/exchange_request.hpp"
#include "net/http.hpp"
#include "state/key_vault.hpp"

namespace morvane::connector {

// A limit order as the caller typed it: every text goes into the request verbatim.
struct LimitOrder {
  std::string symbol;
  std::string side;  // the position's side: "buy" is long, any other text short
  std::string quantity;
  std::string price;
};

// The requests of an exchange that the connector trades on.
struct TradeAdapter {
  ExchangeRequest (*set_leverage)(const std::string& symbol, const std::string& side, int leverage);
  ExchangeRequest (*open)(const LimitOrder& order);
  ExchangeRequest (*close)(const LimitOrder& order);
  // Entries since `lookback_minutes` before `now_ms` (epoch milliseconds); no bounds are applied.
  ExchangeRequest (*funding)(const std::string& symbol, int lookback_minutes, std::int64_t now_ms);

  // The two halves of a close report. An empty `order_id` is allowed.
  ExchangeRequest (*closing_order)(const std::string& symbol, const std::string& order_id);
  ExchangeRequest (*closed_positions)(const std::string& symbol);
  // The member under which the second half is reported.
  std::string_view report_key;
  // False: both halves are always sent, each with a timestamp of its own. True: the order is asked
  // for only with an id, a failure there ends the report, and both halves share one timestamp.
  bool report_in_steps;
};

// All that one exchange is: how it signs and what each operation asks of it. Symbols are the
// platform's, BASE_USDT, and are mapped unchecked; order ids go in as they stand.
struct ExchangeAdapter {
  std::string_view id;
  // The clock in the exchange's own form.
  std::string (*timestamp)();
  // Signs `request` with the credential at `timestamp` (the text that timestamp() gave). A digest
  // tool that fails leaves the signature empty, for the exchange to refuse.
  SignedRequest (*sign)(const ExchangeRequest& request, const StoredCredential& credential,
                        const std::string& timestamp);

  ExchangeRequest (*balance)();
  ExchangeRequest (*position)(const std::string& symbol);
  ExchangeRequest (*order_status)(const std::string& symbol, const std::string& order_id);
  ExchangeRequest (*cancel_order)(const std::string& symbol, const std::string& order_id);

  const TradeAdapter* trades;  // null where the connector only reads
};

// The adapter of exactly this id, or null.
const ExchangeAdapter* find_adapter(const std::string& exchange);

// `request` as it goes out: signed by `adapter`, its extra headers last.
SignedRequest sign_request(const ExchangeAdapter& adapter, const ExchangeRequest& request,
                           const StoredCredential& credential, const std::string& timestamp);

// Signs and sends `request` with curl and returns what curl said.
HttpResult call_exchange(const ExchangeAdapter& adapter, const ExchangeRequest& request,
                         const StoredCredential& credential, const std::string& timestamp);

// The clock in decimal milliseconds, the timestamp of most exchanges.
std::string epoch_ms_text();

// The text before the first "_", or the whole symbol where there is none.
std::string base_asset(const std::string& symbol);

}  // namespace morvane::connector
