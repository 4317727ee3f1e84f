#include "exchanges/exchange_registry.hpp"

#include <gtest/gtest.h>

#include <regex>
#include <string>
#include <utility>
#include <vector>

#include "app/capabilities.hpp"
#include "app/connector_health.hpp"
#include "exchanges/validation.hpp"
#include "support.hpp"

namespace morvane::connector {
namespace {

using test::Tools;

std::string text_of(const ValidateCredentialsResult& result) {
  const auto word = [](bool flag) { return std::string(flag ? "1" : "0"); };
  return result.exchange + "|" + to_string(result.status) + "|" + word(result.can_read) +
         word(result.can_trade) + word(result.withdrawal_enabled) + word(result.credentials_saved) +
         "|" + result.message;
}

TEST(Statuses, are_printed_by_their_names_and_anything_else_as_unknown) {
  const std::vector<std::string> health = {"starting", "pairing_required", "ready", "degraded",
                                           "error",    "unknown"};
  for (std::size_t value = 0; value < health.size(); ++value) {
    EXPECT_EQ(to_string(static_cast<ConnectorHealth>(value)), health[value]);
  }
  const std::vector<std::string> exchange = {
      "not_configured",    "configured", "validating", "valid_read_only",
      "valid_trade_ready", "invalid",    "error",      "unknown"};
  for (std::size_t value = 0; value < exchange.size(); ++value) {
    EXPECT_EQ(to_string(static_cast<ExchangeConnectionStatus>(value)), exchange[value]);
  }
  for (const int value : {-1, 99, 2147483647}) {
    EXPECT_EQ(to_string(static_cast<ConnectorHealth>(value)), "unknown");
    EXPECT_EQ(to_string(static_cast<ExchangeConnectionStatus>(value)), "unknown");
  }
}

TEST(Capabilities, six_exchanges_claim_everything_and_six_nothing) {
  std::vector<std::string> rows;
  for (const ExchangeCapabilityMatrix& row : tolvek_capability_baseline()) {
    std::string flags;
    for (const bool flag :
         {row.validate, row.balance, row.position, row.open_orders, row.funding, row.close_report,
          row.open, row.close, row.cancel, row.status, row.leverage_sync, row.margin_mode_sync}) {
      flags += flag ? '1' : '0';
    }
    rows.push_back(row.exchange + " " + flags);
  }
  EXPECT_EQ(rows, (std::vector<std::string>{
                      "bybit 111111111111", "okx 111111111111", "gate 111111111111",
                      "bingx 111111111111", "kucoin 111111111111", "bitget 111111111111",
                      "hyperliquid 000000000000", "paradex 000000000000", "lighter 000000000000",
                      "extended 000000000000", "reya 000000000000", "asterdex 000000000000"}));
}

TEST(Registry, bootstrap_lists_eleven_exchanges_none_configured) {
  std::vector<std::string> rows;
  for (const ExchangeConnection& row : ExchangeRegistry().bootstrap()) {
    rows.push_back(row.exchange);
    EXPECT_EQ(row.status, ExchangeConnectionStatus::not_configured);
    EXPECT_FALSE(row.credentials_present);
    EXPECT_EQ(row.message, "not configured");
    EXPECT_EQ(row.checked_at, "");
  }
  EXPECT_EQ(rows,
            (std::vector<std::string>{"bybit", "okx", "gate", "bingx", "kucoin", "bitget",
                                      "hyperliquid", "paradex", "lighter", "extended", "reya"}));
}

struct Refusal {
  StoredCredential credential;
  std::string result;
};

TEST(Registry, what_needs_no_network_is_decided_first_and_in_this_order) {
  const std::string unsupported = "|invalid|0000|unsupported exchange";
  const std::string missing = "|invalid|0000|missing api key or secret";
  const std::string no_check =
      "|configured|0000|adapter exists, live validation not implemented yet";
  const std::vector<Refusal> rows = {
      {{"Bybit", "k", "s", ""}, "Bybit" + unsupported},
      {{"bybit ", "k", "s", ""}, "bybit " + unsupported},
      {{"asterdex", "k", "s", ""}, "asterdex" + unsupported},
      {{"", "", "", ""}, unsupported},
      {{"nowhere", "", "", ""}, "nowhere" + unsupported},
      {{"bybit", "", "s", "p"}, "bybit" + missing},
      {{"okx", "k", "", "p"}, "okx" + missing},
      {{"reya", "", "", ""}, "reya" + missing},
      {{"okx", "", "", ""}, "okx" + missing},
      {{"okx", "k", "s", ""}, "okx|invalid|0000|okx passphrase missing"},
      {{"kucoin", "k", "s", ""}, "kucoin|invalid|0000|kucoin passphrase missing"},
      {{"bitget", "k", "s", ""}, "bitget|invalid|0000|bitget passphrase missing"},
      {{"hyperliquid", "k", "s", ""}, "hyperliquid" + no_check},
      {{"paradex", "k", "s", ""}, "paradex" + no_check},
      {{"lighter", "k", "s", ""}, "lighter" + no_check},
      {{"extended", "k", "s", ""}, "extended" + no_check},
      {{"reya", "k", "s", "p"}, "reya" + no_check},
  };
  const Tools tools;
  for (const char* tool : {"curl", "python3", "openssl", "date"}) {
    tools.add(tool, "exit 1");
  }
  const std::regex utc_second("\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\dZ");
  for (const Refusal& row : rows) {
    const ValidateCredentialsResult result = ExchangeRegistry().validate(
        {.exchange = row.credential.exchange, .credential = row.credential});
    EXPECT_EQ(text_of(result), row.result);
    EXPECT_TRUE(std::regex_match(result.checked_at, utc_second)) << result.checked_at;
  }
  for (const char* tool : {"curl", "python3", "openssl", "date"}) {
    EXPECT_TRUE(tools.calls(tool).empty()) << tool;
  }
}

TEST(Results, carry_the_requests_exchange_and_what_was_found) {
  const ValidateCredentialsRequest request{.exchange = "x", .credential = {"y", "k", "s", "p"}};
  const auto invalid = invalid_result(request, "why", "when");
  EXPECT_EQ(text_of(invalid), "x|invalid|0000|why");
  EXPECT_EQ(invalid.checked_at, "when");
  EXPECT_EQ(text_of(error_result(request, "why", "when")), "x|error|0000|why");
  EXPECT_EQ(text_of(success_result(request, true, false, "ok", "when")),
            "x|valid_trade_ready|1100|ok");
  EXPECT_EQ(text_of(success_result(request, false, true, "ok", "when")),
            "x|valid_read_only|1010|ok");
}

}  // namespace
}  // namespace morvane::connector
