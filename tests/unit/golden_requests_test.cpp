#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <iomanip>
#include <map>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "exchanges/exchange_adapter.hpp"

// The requests of every exchange and command against tests/golden/<exchange>.txt. What those tables
// say was computed without this program; test_signatures.py beside them signs them again.

namespace morvane::connector {
namespace {

using Words = std::vector<std::string>;
using Values = std::map<std::string, std::string>;

struct Table {
  Values given;
  std::vector<std::pair<std::string, std::string>> rows;  // a command, and all that it sends
};

// `text` with each {name} replaced by its value.
std::string filled(std::string text, const Values& values) {
  for (const auto& [name, value] : values) {
    const std::size_t at = text.find("{" + name + "}");
    if (at != std::string::npos) text.replace(at, name.size() + 2, value);
  }
  return text;
}

Table read_table(const std::string& exchange) {
  Table table;
  Values headers;  // by the heading of their list
  std::string heading, start, extra, body;
  std::ifstream file(TESTS_DIR "/golden/" + exchange + ".txt");
  for (std::string line; std::getline(file, line);) {
    const std::size_t colon = line.find(": ");
    const std::string name = line.substr(0, colon);
    const std::string value = colon == std::string::npos ? "" : line.substr(colon + 2);
    if (line.empty() || line[0] == '#') continue;
    if (name.rfind("given ", 0) == 0) {
      table.given[name.substr(6)] = value;
    } else if (line.rfind("headers ", 0) == 0) {
      heading = line;
    } else if (line[0] != ' ') {
      table.rows.emplace_back(line, "");
    } else if (table.rows.empty()) {
      headers[heading] += line.substr(2) + "\n";
    } else if (name == "  header") {
      extra += value + "\n";
    } else if (name == "  body") {
      body = value;
    } else if (name != "  signature") {
      start = line.substr(2) + "\n";
    } else {
      table.given["signature"] = value;
      start += headers["headers of every request"];
      if (!body.empty()) start += headers["headers after them when there is a body"];
      table.rows.back().second += filled(start + extra + body + "\n", table.given);
      extra = body = "";
    }
  }
  return table;
}

std::string text_of(const SignedRequest& request) {
  std::string text = request.method + " " + request.url + "\n";
  for (const std::string& header : request.headers) text += header + "\n";
  return text + request.body + "\n";
}

// The words of a command; one in single quotes may hold blanks or be empty.
Words words_of(const std::string& command) {
  std::istringstream stream(command);
  Words words;
  for (std::string word; stream >> std::quoted(word, '\'');) words.push_back(word);
  return words;
}

std::vector<ExchangeRequest> requests_of(const ExchangeAdapter& adapter, Words words,
                                         std::int64_t now_ms) {
  words.resize(7);
  const std::string &command = words[0], &symbol = words[2], &third = words[3];
  const TradeAdapter* trades = adapter.trades;
  if (command == "balance") return {adapter.balance()};
  if (command == "get-position") return {adapter.position(symbol)};
  if (command == "order-status") return {adapter.order_status(symbol, third)};
  if (command == "cancel-order") return {adapter.cancel_order(symbol, third)};
  if (command == "funding") return {trades->funding(symbol, std::stoi(third), now_ms)};
  const LimitOrder order{symbol, third, words[4], words[5]};
  if (command == "place-close") return {trades->close(order)};
  if (command == "place-open") {
    return {trades->set_leverage(symbol, third, std::stoi(words[6])), trades->open(order)};
  }
  if (trades->report_in_steps && third.empty()) return {trades->closed_positions(symbol)};
  return {trades->closing_order(symbol, third), trades->closed_positions(symbol)};
}

TEST(GoldenRequests, every_request_is_exactly_the_one_in_the_table) {
  for (const char* exchange : {"bybit", "okx", "gate", "bingx", "kucoin", "bitget"}) {
    Table table = read_table(exchange);
    const std::int64_t now_ms = std::atoll(table.given["now_ms"].c_str());
    const StoredCredential credential{exchange, table.given["key"], table.given["secret"],
                                      table.given["passphrase"]};
    EXPECT_FALSE(table.rows.empty()) << exchange;
    for (const auto& [command, expected] : table.rows) {
      const Words words = words_of(command);
      const ExchangeAdapter* adapter = find_adapter(words.at(1));
      std::string actual;
      for (const ExchangeRequest& request : requests_of(*adapter, words, now_ms)) {
        actual += text_of(sign_request(*adapter, request, credential, table.given["timestamp"]));
      }
      EXPECT_EQ(actual, expected) << command;
    }
  }
}

TEST(Adapters, only_six_exchanges_have_one_by_their_exact_names) {
  for (const char* exchange : {"", "Bybit", "bybit ", "hyperliquid", "byb"}) {
    EXPECT_EQ(find_adapter(exchange), nullptr) << exchange;
  }
}

}  // namespace
}  // namespace morvane::connector
