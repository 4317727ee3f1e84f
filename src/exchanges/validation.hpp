#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "exchanges/exchange_registry.hpp"

namespace morvane::connector {

// What the live checks share. `checked_at` is a UTC text to the second.

// Status invalid or error, with nothing permitted.
ValidateCredentialsResult invalid_result(const ValidateCredentialsRequest& request,
                                         const std::string& message, const std::string& checked_at);
ValidateCredentialsResult error_result(const ValidateCredentialsRequest& request,
                                       const std::string& message, const std::string& checked_at);

// Readable, and trade-ready or read-only as `can_trade` says.
ValidateCredentialsResult success_result(const ValidateCredentialsRequest& request, bool can_trade,
                                         bool withdrawal_enabled, const std::string& message,
                                         const std::string& checked_at);

bool contains_any(std::string_view text, const std::vector<std::string_view>& needles);

}  // namespace morvane::connector
