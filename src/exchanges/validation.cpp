#include "exchanges/validation.hpp"

#include <algorithm>

#include "net/text.hpp"

namespace morvane::connector {
namespace {

ValidateCredentialsResult plain_result(const ValidateCredentialsRequest& request,
                                       ExchangeConnectionStatus status, const std::string& message,
                                       const std::string& checked_at) {
  ValidateCredentialsResult result;
  result.exchange = request.exchange;
  result.status = status;
  result.message = message;
  result.checked_at = checked_at;
  return result;
}

}  // namespace

ValidateCredentialsResult invalid_result(const ValidateCredentialsRequest& request,
                                         const std::string& message,
                                         const std::string& checked_at) {
  return plain_result(request, ExchangeConnectionStatus::invalid, message, checked_at);
}

ValidateCredentialsResult error_result(const ValidateCredentialsRequest& request,
                                       const std::string& message, const std::string& checked_at) {
  return plain_result(request, ExchangeConnectionStatus::error, message, checked_at);
}

ValidateCredentialsResult success_result(const ValidateCredentialsRequest& request, bool can_trade,
                                         bool withdrawal_enabled, const std::string& message,
                                         const std::string& checked_at) {
  const auto status = can_trade ? ExchangeConnectionStatus::valid_trade_ready
                                : ExchangeConnectionStatus::valid_read_only;
  ValidateCredentialsResult result = plain_result(request, status, message, checked_at);
  result.can_read = true;
  result.can_trade = can_trade;
  result.withdrawal_enabled = withdrawal_enabled;
  return result;
}

bool contains_any(std::string_view text, const std::vector<std::string_view>& needles) {
  return std::any_of(needles.begin(), needles.end(),
                     [&](std::string_view needle) { return contains(text, needle); });
}

}  // namespace morvane::connector
