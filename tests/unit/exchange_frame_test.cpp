#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "exchanges/cex_executor.hpp"
#include "exchanges/cex_reader.hpp"
#include "net/clock.hpp"
#include "support.hpp"

// The frame around every request: what is checked first, how many requests go out, what becomes of
// the answers. The requests themselves are the golden tables' business.

namespace morvane::connector {
namespace {

using test::TempFolder;
using test::Tools;
using Words = std::vector<std::string>;

std::string failed(const std::string& reason) {
  return R"({"status":"error","reason":")" + reason + "\"}";
}

std::string answered(const std::string& exchange, const std::string& kind,
                     const std::string& body) {
  return R"({"status":"ok","exchange":")" + exchange + R"(","kind":")" + kind + R"(","body":)" +
         body + "}";
}

class Frame : public testing::Test {
 protected:
  Frame() {
    answer_with("printf '{\"n\":%s}' $n");
    for (const char* exchange :
         {"bybit", "okx", "gate", "bingx", "kucoin", "bitget", "hyperliquid", "Bybit"}) {
      vault_.save({exchange, "key", "secret", "pass"});
    }
  }

  // `body` is what curl does, with $n the number of the run and $url the last argument.
  void answer_with(const std::string& body) {
    tools_.add("curl",
               "echo >> $here/runs\nn=$(($(wc -l < $here/runs)))\nfor url; do :; done\n" + body);
  }

  // Method and URL (without host, signature and time) of each request so far.
  Words sent() const {
    Words requests;
    for (const Words& call : tools_.calls("curl")) {
      std::string url = call.back().substr(call.back().find('/', 8));
      requests.push_back(call.at(4) + " " + url.substr(0, url.find('?')));
    }
    return requests;
  }

  // Every operation; those of the reader first.
  Words all_operations(const std::string& exchange, const std::string& order_id) {
    return {reader_.get_balance(exchange),
            reader_.get_position(exchange, "BTC_USDT"),
            reader_.get_order_status(exchange, "BTC_USDT", order_id),
            reader_.cancel_order(exchange, "BTC_USDT", order_id),
            executor_.place_open(exchange, "BTC_USDT", "buy", "1", "2", 3),
            executor_.place_close(exchange, "BTC_USDT", "buy", "1", "2"),
            executor_.get_funding(exchange, "BTC_USDT", 180),
            executor_.get_close_report(exchange, "BTC_USDT", order_id)};
  }

  Tools tools_;
  TempFolder folder_;
  KeyVault vault_{folder_.path(), tools_.folder() / "missing"};
  CexReader reader_{vault_};
  CexExecutor executor_{vault_};
};

TEST_F(Frame, a_missing_credential_comes_before_everything_else) {
  for (const char* exchange : {"nowhere", "", "bybit "}) {
    for (const char* order_id : {"1", ""}) {
      EXPECT_EQ(all_operations(exchange, order_id), Words(8, failed("credentials_not_found")));
    }
  }
  EXPECT_TRUE(sent().empty());
}

TEST_F(Frame, an_exchange_without_adapter_is_unsupported_after_the_order_id_is_seen) {
  const std::string unsupported = failed("unsupported_exchange");
  const std::string no_id = failed("missing_order_id");
  for (const char* exchange : {"hyperliquid", "Bybit"}) {
    EXPECT_EQ(all_operations(exchange, "1"), Words(8, unsupported));
    EXPECT_EQ(all_operations(exchange, ""),
              (Words{unsupported, unsupported, no_id, no_id, unsupported, unsupported, unsupported,
                     unsupported}));
  }
  EXPECT_TRUE(sent().empty());
}

TEST_F(Frame, three_exchanges_are_read_and_not_traded_on) {
  for (const char* exchange : {"bingx", "kucoin", "bitget"}) {
    const Words answers = all_operations(exchange, "1");
    for (std::size_t operation = 0; operation < answers.size(); ++operation) {
      EXPECT_EQ(answers[operation] == failed("unsupported_exchange"), operation >= 4)
          << exchange << ": " << answers[operation];
    }
  }
  EXPECT_EQ(sent().size(), 12U);
}

TEST_F(Frame, an_order_is_not_read_or_cancelled_without_an_id) {
  for (const char* exchange : {"bybit", "okx", "gate", "bingx", "kucoin", "bitget"}) {
    EXPECT_EQ(reader_.get_order_status(exchange, "BTC_USDT", ""), failed("missing_order_id"));
    EXPECT_EQ(reader_.cancel_order(exchange, "BTC_USDT", ""), failed("missing_order_id"));
  }
  EXPECT_TRUE(sent().empty());
}

TEST_F(Frame, the_exchanges_answer_is_wrapped_as_it_came) {
  const std::vector<std::pair<std::string, std::string>> rows = {
      {"printf '{\"retCode\":10003}'", "{\"retCode\":10003}"},
      {"printf ''", ""},
      {"printf '\\n{\\n}\\n\\n'", "\n{\n}\n\n"},
      {"printf '<html>\"'", "<html>\""},
  };
  for (const auto& [curl, body] : rows) {
    answer_with(curl);
    EXPECT_EQ(reader_.get_balance("bybit"), answered("bybit", "balance", body));
    EXPECT_EQ(reader_.get_position("okx", "X"), answered("okx", "position", body));
    EXPECT_EQ(reader_.get_order_status("kucoin", "X", "1"),
              answered("kucoin", "order_status", body));
    EXPECT_EQ(reader_.cancel_order("bingx", "X", "1"), answered("bingx", "cancel_order", body));
    EXPECT_EQ(executor_.get_funding("gate", "X", 1), answered("gate", "funding", body));
    EXPECT_EQ(executor_.place_close("gate", "X", "buy", "1", "1"),
              answered("gate", "place_close", body));
  }
}

TEST_F(Frame, a_failed_transfer_drops_what_curl_said) {
  for (const char* curl : {"echo 'curl: (7) no' >&2; exit 7", "printf '{}'; exit 28"}) {
    answer_with(curl);
    for (const char* exchange : {"bybit", "okx", "gate"}) {
      EXPECT_EQ(all_operations(exchange, "1"), Words(8, failed("http_failed"))) << exchange;
    }
  }
}

TEST_F(Frame, opening_sets_the_leverage_and_then_places_the_order) {
  EXPECT_EQ(executor_.place_open("bybit", "BTC_USDT", "buy", "1", "2", 3),
            answered("bybit", "place_open", R"({"leverage":{"n":1},"place":{"n":2}})"));
  EXPECT_EQ(sent(), (Words{"POST /v5/position/set-leverage", "POST /v5/order/create"}));
}

TEST_F(Frame, the_order_goes_out_whatever_came_of_the_leverage) {
  for (const char* failing : {"1", "2"}) {
    answer_with("test $(($n % 2)) -eq $((" + std::string(failing) + " % 2)) && exit 7; printf {}");
    for (const char* exchange : {"bybit", "okx", "gate"}) {
      const std::size_t before = sent().size();
      EXPECT_EQ(executor_.place_open(exchange, "BTC_USDT", "buy", "1", "2", 3),
                failed("http_failed"));
      EXPECT_EQ(sent().size(), before + 2) << exchange << ", request " << failing << " failing";
    }
  }
}

TEST_F(Frame, closing_sends_one_order) {
  for (const char* exchange : {"bybit", "okx", "gate"}) {
    executor_.place_close(exchange, "BTC_USDT", "buy", "1", "2");
  }
  EXPECT_EQ(sent(), (Words{"POST /v5/order/create", "POST /api/v5/trade/order",
                           "POST /api/v4/futures/usdt/orders"}));
}

TEST_F(Frame, a_close_report_joins_the_order_and_the_record) {
  EXPECT_EQ(executor_.get_close_report("bybit", "BTC_USDT", ""),
            answered("bybit", "close_report", R"({"order":{"n":1},"closed_pnl":{"n":2}})"));
  EXPECT_EQ(executor_.get_close_report("okx", "BTC_USDT", "9"),
            answered("okx", "close_report", R"({"order":{"n":3},"positions_history":{"n":4}})"));
  EXPECT_EQ(executor_.get_close_report("gate", "BTC_USDT", "9"),
            answered("gate", "close_report", R"({"order":{"n":5},"trades":{"n":6}})"));
  EXPECT_EQ(executor_.get_close_report("gate", "BTC_USDT", ""),
            answered("gate", "close_report", R"({"order":{},"trades":{"n":7}})"));
  EXPECT_EQ(
      sent(),
      (Words{"GET /v5/order/realtime", "GET /v5/position/closed-pnl", "GET /api/v5/trade/order",
             "GET /api/v5/account/positions-history", "GET /api/v4/futures/usdt/orders/9",
             "GET /api/v4/futures/usdt/my_trades", "GET /api/v4/futures/usdt/my_trades"}));
}

TEST_F(Frame, a_close_report_stops_at_a_failed_order_on_gate_alone) {
  answer_with("case $url in *order*) exit 7 ;; esac; printf {}");
  const std::vector<std::pair<std::string, std::size_t>> rows = {
      {"bybit", 2}, {"okx", 2}, {"gate", 1}};
  for (const auto& [exchange, requests] : rows) {
    const std::size_t before = sent().size();
    EXPECT_EQ(executor_.get_close_report(exchange, "BTC_USDT", "9"), failed("http_failed"));
    EXPECT_EQ(sent().size(), before + requests) << exchange;
  }
  answer_with("case $url in *order*) printf {} ;; *) exit 7 ;; esac");
  for (const auto& [exchange, requests] : rows) {
    EXPECT_EQ(executor_.get_close_report(exchange, "BTC_USDT", "9"), failed("http_failed"));
  }
}

TEST_F(Frame, gates_report_signs_both_halves_with_one_timestamp_and_its_orders_do_not) {
  answer_with("test $(($n % 2)) -eq 0 || sleep 1.1; printf {}");  // the clock moves on
  executor_.get_close_report("gate", "BTC_USDT", "9");
  executor_.place_open("gate", "BTC_USDT", "buy", "1", "2", 3);
  Words timestamps;
  for (const Words& call : tools_.calls("curl")) {
    timestamps.push_back(call.at(8));
    EXPECT_EQ(timestamps.back().rfind("Timestamp: ", 0), 0U);
  }
  ASSERT_EQ(timestamps.size(), 4U);
  EXPECT_EQ(timestamps[0], timestamps[1]);
  EXPECT_LT(timestamps[2], timestamps[3]);
}

TEST_F(Frame, funding_starts_that_many_minutes_before_now) {
  const std::int64_t before = epoch_ms();
  executor_.get_funding("bybit", "BTC_USDT", 60);
  executor_.get_funding("gate", "BTC_USDT", -2);
  const std::int64_t after = epoch_ms();
  const auto start = [&](std::size_t call, const std::string& parameter) {
    const std::string url = tools_.calls("curl").at(call).back();
    return std::stoll(url.substr(url.find(parameter) + parameter.size()));
  };
  EXPECT_LE(before, start(0, "&startTime=") + 60 * 60 * 1000);
  EXPECT_LE(start(0, "&startTime=") + 60 * 60 * 1000, after);
  EXPECT_LE(before / 1000, start(1, "&from=") - 2 * 60);
  EXPECT_LE(start(1, "&from=") - 2 * 60, after / 1000);
}

TEST_F(Frame, a_failed_digest_is_sent_as_an_empty_signature) {
  tools_.add("openssl", "exit 1");
  EXPECT_EQ(reader_.get_balance("gate"), answered("gate", "balance", R"({"n":1})"));
  const Words call = tools_.calls("curl").at(0);
  EXPECT_EQ(call.at(10), "SIGN: ");
}

}  // namespace
}  // namespace morvane::connector
