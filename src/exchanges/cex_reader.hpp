#pragma once

#include <string>

#include "state/key_vault.hpp"

namespace morvane::connector {

// Reads from, and cancels on, the exchanges that have an adapter. Every operation answers one JSON
// text, as in_frame makes it.
class CexReader {
 public:
  // `vault` is borrowed and must outlive the reader.
  explicit CexReader(const KeyVault& vault) : vault_(vault) {}

  std::string get_balance(const std::string& exchange) const;
  std::string get_position(const std::string& exchange, const std::string& symbol) const;
  std::string get_order_status(const std::string& exchange, const std::string& symbol,
                               const std::string& order_id) const;
  std::string cancel_order(const std::string& exchange, const std::string& symbol,
                           const std::string& order_id) const;

 private:
  const KeyVault& vault_;
};

}  // namespace morvane::connector
