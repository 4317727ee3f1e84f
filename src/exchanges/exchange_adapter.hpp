#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "exchanges/validation.hpp"

namespace morvane::connector {

struct Exchange;

enum class HttpMethod { get, post, del };

// What an operation asks of an exchange, unsigned.
struct ExchangeRequest {
  HttpMethod method = HttpMethod::get;
  std::string path;                             // begins with "/"
  std::string query;                            // what follows the "?"; empty for none
  std::string body = {};                        // the JSON text of a POST; empty for none
  std::vector<std::string> extra_headers = {};  // "Name: value", sent after the exchange's own

  // The method as it stands in the request line and in what is signed.
  std::string verb() const {
    return method == HttpMethod::get ? "GET" : method == HttpMethod::post ? "POST" : "DELETE";
  }
  // The path with its query, as it stands in the request line.
  std::string target() const { return query.empty() ? path : path + "?" + query; }
};

inline ExchangeRequest get_request(const std::string& path, const std::string& query = "") {
  return {.method = HttpMethod::get, .path = path, .query = query};
}
inline ExchangeRequest delete_request(const std::string& path, const std::string& query = "") {
  return {.method = HttpMethod::del, .path = path, .query = query};
}
inline ExchangeRequest post_request(const std::string& path, const std::string& body) {
  return {.method = HttpMethod::post, .path = path, .query = "", .body = body};
}

// What signing makes of a request: the exchange's headers, "Name: value" in the order of sending,
// and the query that is sent.
struct Signature {
  std::vector<std::string> headers;
  std::string query;
};

// A limit order as the caller typed it: every text goes into the request verbatim.
struct LimitOrder {
  std::string symbol;
  std::string side;  // the position's side: "buy" is long, any other text short
  std::string quantity;
  std::string price;

  bool is_long() const { return side == "buy"; }
};

// The requests of an exchange that the connector trades on.
struct TradeAdapter {
  ExchangeRequest (*set_leverage)(const LimitOrder& order, int leverage);
  ExchangeRequest (*open)(const LimitOrder& order);
  ExchangeRequest (*close)(const LimitOrder& order);
  // Entries since `lookback_minutes` before `now_ms` (epoch milliseconds); no bounds are applied.
  ExchangeRequest (*funding)(const std::string& symbol, int lookback_minutes, std::int64_t now_ms);

  // The two halves of a close report. An empty `order_id` is allowed.
  ExchangeRequest (*closing_order)(const std::string& symbol, const std::string& order_id);
  ExchangeRequest (*closed_positions)(const std::string& symbol);
  // The member under which the second half is reported.
  const char* report_key;
  bool order_asked_only_with_id = false;  // else with an empty one too
  bool failed_order_ends_report = false;  // else the second half is sent all the same
  bool report_has_one_timestamp = false;  // else each half has its own
};

// How one exchange signs and what each operation asks of it. Symbols are the platform's, BASE_USDT,
// and are mapped unchecked; order ids go in as they stand.
struct ExchangeAdapter {
  // The clock in the exchange's own form.
  std::string (*timestamp)();
  // Signs `request` with the credential at `timestamp` (the text that timestamp() gave). A digest
  // tool that fails leaves the signature empty, for the exchange to refuse.
  Signature (*sign)(const ExchangeRequest& request, const StoredCredential& credential,
                    const std::string& timestamp);

  ExchangeRequest (*balance)();
  ExchangeRequest (*position)(const std::string& symbol);
  ExchangeRequest (*order_status)(const std::string& symbol, const std::string& order_id);
  ExchangeRequest (*cancel_order)(const std::string& symbol, const std::string& order_id);

  // Proves a credential at `exchange`, which is the adapter's own; key and secret are not empty. A
  // check that asks with curl tells a failed transfer (`error`) from a refusal; for one that probes
  // with a Python program it is one more answer that proves nothing (`invalid`).
  ValidateCredentialsResult (*live_check)(const Exchange& exchange,
                                          const ValidateCredentialsRequest& request);

  const TradeAdapter* trades = nullptr;  // null where the connector only reads
};

// The text before the first "_", or the whole symbol where there is none.
inline std::string base_asset(const std::string& symbol) {
  return symbol.substr(0, symbol.find('_'));
}

}  // namespace morvane::connector
