#pragma once

#include <string>

#include "exchanges/catalogue.hpp"

namespace morvane::connector {

// What every operation on an exchange shares.

// Signs `request` at `timestamp` and sends it with curl; what curl said. The exchange has an
// adapter.
HttpResult call_exchange(const Exchange& exchange, const ExchangeRequest& request,
                         const StoredCredential& credential, const std::string& timestamp);

// {"status":"ok",...,"body":<body>} around an exchange's raw answer, which is neither parsed nor
// escaped.
std::string ok_json(const std::string& exchange, const std::string& kind, const std::string& body);

}  // namespace morvane::connector
