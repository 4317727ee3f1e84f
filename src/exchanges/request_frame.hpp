#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "exchanges/catalogue.hpp"
#include "state/key_vault.hpp"

namespace morvane::connector {

// What an exchange answered, as it came, a refusal too; nothing when curl failed: what was asked
// for may have been done.
using Answer = std::optional<std::string>;

// The owner's account on an exchange that has an adapter: what signs and sends.
struct Account {
  const Exchange& exchange;
  const StoredCredential& credential;

  const ExchangeAdapter& adapter() const { return *exchange.adapter; }
  const TradeAdapter& trades() const { return *exchange.adapter->trades; }
  std::string timestamp() const { return adapter().timestamp(); }

  // Signs `request` at `at` (a text of timestamp()) and sends it.
  Answer send(const ExchangeRequest& request, const std::string& at) const;
  Answer send(const ExchangeRequest& request) const { return send(request, timestamp()); }
};

// One operation: the word for it in the answer, and what it needs beside a credential.
struct Operation {
  std::string_view kind;
  const std::string* order_id = nullptr;  // where there is one, it must not be empty
  bool trades = false;                    // an exchange that the connector trades on
};

// The requests of one operation and what their answers make together.
using Work = std::function<Answer(const Account& account)>;

// The frame of every operation on an exchange. What `work` brings in an "ok" envelope, or an error
// envelope with the first of these reasons that applies: "credentials_not_found",
// "missing_order_id", "unsupported_exchange", "http_failed". Nothing throws, nothing is retried.
std::string in_frame(const KeyVault& vault, const std::string& exchange, const Operation& operation,
                     const Work& work);

}  // namespace morvane::connector
