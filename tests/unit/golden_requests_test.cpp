#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "exchanges/exchange_adapter.hpp"

// The requests of every exchange and command against tests/golden/<exchange>.txt. What those tables
// say was computed without this program; test_signatures.py beside them signs them again.

namespace morvane::connector {
namespace {

// Every table holds these commands, in this order; the id 'a&b/c "d" e' must go in as it stands.
const std::vector<std::string> reads = {
    "balance",
    "get-position BTC_USDT",
    "get-position BTCUSDT",
    "get-position ETH_USDT",
    "get-position ETHUSDT",
    "get-position _USDT",
    "get-position ''",
    "get-position ETH_PERP",
    "get-position BTC",
    "order-status BTC_USDT 12345",
    "order-status ETHUSDT 12345",
    "order-status ETH_PERP 12345",
    "order-status '' 12345",
    "order-status BTC_USDT 'a&b/c \"d\" e'",
    "cancel-order BTC_USDT 12345",
    "cancel-order ETHUSDT 12345",
    "cancel-order ETH_PERP 12345",
    "cancel-order '' 12345",
    "cancel-order BTC_USDT 'a&b/c \"d\" e'",
};

// So do those of the exchanges that the connector trades on.
const std::vector<std::string> trades = {
    "place-open BTC_USDT buy 0.5 60000.5 10",
    "place-open BTC_USDT sell 3 60000.5 10",
    "place-open BTCUSDT Buy 3 60000.5 1",
    "place-open ETH_USDT long 3 2000 125",
    "place-open ETHUSDT buy 3 2000 0",
    "place-open _USDT '' 3 2000 10",
    "place-open '' buy '' '' -5",
    "place-open ETH_PERP sell -3 '\"2000' 10",
    "place-close BTC_USDT buy 0.5 60000.5",
    "place-close BTC_USDT sell 3 60000.5",
    "place-close BTCUSDT Buy 3 60000.5",
    "place-close ETH_USDT long 3 2000",
    "place-close ETHUSDT buy 3 2000",
    "place-close _USDT '' 3 2000",
    "place-close '' buy '' ''",
    "place-close ETH_PERP sell -3 '\"2000'",
    "funding BTC_USDT 180",
    "funding BTCUSDT 0",
    "funding ETH_USDT -60",
    "funding ETHUSDT 2147483647",
    "funding ETH_PERP -2147483648",
    "funding '' 180",
    "close-report BTC_USDT 12345",
    "close-report BTC_USDT ''",
    "close-report BTCUSDT 12345",
    "close-report ETH_PERP ''",
    "close-report ETHUSDT 'a&b/c \"d\" e'",
    "close-report '' 12345",
};

struct Table {
  std::map<std::string, std::string> given;
  std::vector<std::pair<std::string, std::string>> blocks;  // command, its requests
};

Table read_table(const std::string& exchange) {
  Table table;
  std::ifstream file(TESTS_DIR "/golden/" + exchange + ".txt");
  for (std::string line; std::getline(file, line);) {
    const bool is_signed_text = line.rfind("  signs: ", 0) == 0;  // the Python test's business
    if (line.empty() || line[0] == '#' || is_signed_text) {
      continue;
    }
    if (line.rfind("given ", 0) == 0) {
      const std::size_t colon = line.find(": ");
      table.given[line.substr(6, colon - 6)] = line.substr(colon + 2);
    } else if (line[0] != ' ') {
      table.blocks.emplace_back(line, "");
    } else {
      table.blocks.back().second += line + "\n";
    }
  }
  return table;
}

// The words of a command; one in single quotes may hold blanks or be empty.
std::vector<std::string> words_of(const std::string& command) {
  std::vector<std::string> words;
  for (std::size_t at = 0; at < command.size(); ++at) {
    const bool quoted = command[at] == '\'';
    const std::size_t begin = at + (quoted ? 1 : 0);
    at = std::min(command.find(quoted ? '\'' : ' ', begin), command.size());
    words.push_back(command.substr(begin, at - begin));
    at += quoted ? 1 : 0;
  }
  return words;
}

std::vector<ExchangeRequest> requests_of(const ExchangeAdapter& adapter,
                                         const std::vector<std::string>& words,
                                         std::int64_t now_ms) {
  const std::string& command = words[0];
  const TradeAdapter* trade = adapter.trades;
  if (command == "balance") {
    return {adapter.balance()};
  }
  if (command == "get-position") {
    return {adapter.position(words.at(1))};
  }
  if (command == "order-status") {
    return {adapter.order_status(words.at(1), words.at(2))};
  }
  if (command == "cancel-order") {
    return {adapter.cancel_order(words.at(1), words.at(2))};
  }
  if (command == "funding") {
    return {trade->funding(words.at(1), std::stoi(words.at(2)), now_ms)};
  }
  if (command == "close-report") {
    std::vector<ExchangeRequest> requests = {trade->closing_order(words.at(1), words.at(2)),
                                             trade->closed_positions(words.at(1))};
    if (trade->report_in_steps && words[2].empty()) {
      requests.erase(requests.begin());
    }
    return requests;
  }
  const LimitOrder order{words.at(1), words.at(2), words.at(3), words.at(4)};
  if (command == "place-close") {
    return {trade->close(order)};
  }
  return {trade->set_leverage(order.symbol, order.side, std::stoi(words.at(5))),
          trade->open(order)};
}

std::string block_of(const SignedRequest& request) {
  std::string block = "  " + request.method + " " + request.url + "\n";
  for (const std::string& header : request.headers) {
    block += "  " + header + "\n";
  }
  return request.body.empty() ? block : block + "  body: " + request.body + "\n";
}

class GoldenRequests : public testing::TestWithParam<const char*> {};

TEST_P(GoldenRequests, every_request_is_exactly_the_one_in_the_table) {
  const std::string exchange = GetParam();
  const ExchangeAdapter* adapter = find_adapter(exchange);
  ASSERT_NE(adapter, nullptr);
  Table table = read_table(exchange);
  const StoredCredential credential{exchange, table.given["api_key"], table.given["api_secret"],
                                    table.given["passphrase"]};
  for (const auto& [command, expected] : table.blocks) {
    std::string actual;
    const std::string arguments = command.substr(exchange.size() + 1);
    for (const ExchangeRequest& request :
         requests_of(*adapter, words_of(arguments), std::stoll(table.given["now_ms"]))) {
      actual += block_of(sign_request(*adapter, request, credential, table.given["timestamp"]));
    }
    EXPECT_EQ(actual, expected) << command;
  }
}

TEST_P(GoldenRequests, the_table_holds_every_command_and_no_other) {
  const std::string exchange = GetParam();
  std::vector<std::string> expected;
  for (const std::string& command : reads) {
    expected.push_back(exchange + " " + command);
  }
  const bool traded_on = exchange == "bybit" || exchange == "okx" || exchange == "gate";
  for (const std::string& command : traded_on ? trades : std::vector<std::string>()) {
    expected.push_back(exchange + " " + command);
  }
  std::vector<std::string> actual;
  for (const auto& [command, requests] : read_table(exchange).blocks) {
    actual.push_back(command);
  }
  EXPECT_EQ(actual, expected);
}

INSTANTIATE_TEST_SUITE_P(Exchanges, GoldenRequests,
                         testing::Values("bybit", "okx", "gate", "bingx", "kucoin", "bitget"),
                         [](const auto& exchange) { return std::string(exchange.param); });

TEST(Adapters, only_these_six_exchanges_have_one_and_three_of_them_trade) {
  for (const char* exchange : {"bybit", "okx", "gate"}) {
    EXPECT_NE(find_adapter(exchange)->trades, nullptr) << exchange;
  }
  for (const char* exchange : {"bingx", "kucoin", "bitget"}) {
    EXPECT_EQ(find_adapter(exchange)->trades, nullptr) << exchange;
  }
  for (const char* exchange : {"", "Bybit", "bybit ", "hyperliquid", "byb"}) {
    EXPECT_EQ(find_adapter(exchange), nullptr) << exchange;
  }
}

}  // namespace
}  // namespace morvane::connector
