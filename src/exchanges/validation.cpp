#include "exchanges/validation.hpp"

namespace morvane::connector {

std::string to_string(ExchangeConnectionStatus status) {
  switch (status) {
    case ExchangeConnectionStatus::not_configured: return "not_configured";
    case ExchangeConnectionStatus::configured: return "configured";
    case ExchangeConnectionStatus::validating: return "validating";
    case ExchangeConnectionStatus::valid_read_only: return "valid_read_only";
    case ExchangeConnectionStatus::valid_trade_ready: return "valid_trade_ready";
    case ExchangeConnectionStatus::invalid: return "invalid";
    case ExchangeConnectionStatus::error: return "error";
  }
  return "unknown";
}

}  // namespace morvane::connector
