#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "exchanges/exchange_registry.hpp"
#include "net/digest.hpp"
#include "support.hpp"

// The live checks, with tools that answer in place of the exchanges.

namespace morvane::connector {
namespace {

using test::Tools;
using test::write_file;
using Words = std::vector<std::string>;

struct Judgement {
  std::string exchange;
  std::string answer;
  std::string result;
};

class LiveCheck : public testing::Test {
 protected:
  LiveCheck() {
    for (const char* tool : {"curl", "python3"}) {
      tools_.add(tool, "cat $here/answer");
    }
  }

  std::string check(const std::string& exchange) const {
    const ValidateCredentialsResult result =
        ExchangeRegistry().validate({.exchange = exchange, .credential = credential_});
    std::string rights = result.can_read ? "read" : "";
    rights += result.can_trade ? " trade" : "";
    rights += result.withdrawal_enabled ? " withdraw" : "";
    return to_string(result.status) + "|" + rights + "|" + result.message;
  }

  void judge(const std::vector<Judgement>& rows) const {
    for (const Judgement& row : rows) {
      write_file(tools_.folder() / "answer", row.answer);
      EXPECT_EQ(check(row.exchange), row.result) << row.exchange << ": " << row.answer;
    }
  }

  Tools tools_;
  StoredCredential credential_{"any", "k'1", "it's $ecret", "pass"};
};

TEST_F(LiveCheck, bybit_is_judged_by_its_code_and_words) {
  const std::string live = "|live bybit auth validated";
  judge({
      {"bybit", R"({"retCode":0})", "valid_read_only|read" + live},
      {"bybit", R"({"retCode": 0,"a":["Order"]})", "valid_trade_ready|read trade" + live},
      {"bybit", R"({"retCode":0,"a":"border"})", "valid_trade_ready|read trade" + live},
      {"bybit", R"({"retCode":0,"a":"Withdraw"})", "valid_read_only|read withdraw" + live},
      {"bybit", R"({"retCode":0,"a":"Withdraw Order"})",
       "valid_trade_ready|read trade withdraw" + live},
      {"bybit", R"({"retCode":0,"a":"withdraw ORDER"})", "valid_read_only|read" + live},
      {"bybit", "{\"retCode\":10003} \n",
       "invalid||bybit rejected credentials: {\"retCode\":10003}"},
      {"bybit", R"({"retCode":  0})", R"(invalid||bybit rejected credentials: {"retCode":  0})"},
      {"bybit", R"({"retCode":"0"})", R"(invalid||bybit rejected credentials: {"retCode":"0"})"},
      {"bybit", "", "invalid||bybit rejected credentials: "},
  });
}

TEST_F(LiveCheck, gate_is_judged_by_any_of_three_members) {
  const std::string live = "valid_trade_ready|read trade|live gate auth validated";
  judge({
      {"gate", R"({"user":1})", live},
      {"gate", R"([{"currency":"USDT"}])", live},
      {"gate", R"({"available":"0"})", live},
      {"gate", R"({"label":"INVALID_KEY","message":"user x"})",
       R"(invalid||gate rejected credentials: {"label":"INVALID_KEY","message":"user x"})"},
      {"gate", "\n", "invalid||gate rejected credentials: "},
  });
}

TEST_F(LiveCheck, bybit_is_asked_once_with_a_signature_over_time_key_and_window) {
  write_file(tools_.folder() / "answer", "");
  check("bybit");
  const std::vector<Words> calls = tools_.calls("curl");
  ASSERT_EQ(calls.size(), 1U);
  const std::string time = calls[0].at(6).substr(std::string("X-BAPI-TIMESTAMP: ").size());
  EXPECT_EQ(time.find_first_not_of("0123456789"), std::string::npos) << time;
  EXPECT_EQ(calls[0], (Words{"-sS", "--max-time", "15", "-H", "X-BAPI-API-KEY: k'1", "-H",
                             "X-BAPI-TIMESTAMP: " + time, "-H", "X-BAPI-RECV-WINDOW: 5000", "-H",
                             "X-BAPI-SIGN: " + hmac_sha256_hex("it's $ecret", time + "k'15000"),
                             "https://api.bybit.com/v5/user/query-api"}));
}

TEST_F(LiveCheck, gate_is_asked_once_with_a_signature_over_the_empty_body) {
  tools_.add("date", "test \"$1\" = +%s && echo 1741338303");
  write_file(tools_.folder() / "answer", "");
  check("gate");
  const std::string text =
      "GET\n/api/v4/futures/usdt/accounts\n\n" + sha512_hex("") + "\n1741338303";
  EXPECT_EQ(tools_.calls("curl"),
            (std::vector<Words>{{"-sS", "--max-time", "15", "-H", "KEY: k'1", "-H",
                                 "Timestamp: 1741338303", "-H",
                                 "SIGN: " + hmac_sha512_hex("it's $ecret", text),
                                 "https://api.gateio.ws/api/v4/futures/usdt/accounts"}}));
}

TEST_F(LiveCheck, a_tool_that_fails_is_an_error_and_no_refusal) {
  tools_.add("curl", "echo 'curl: (6) no host' >&2; exit 6");
  EXPECT_EQ(check("bybit"), "error||bybit request failed: curl: (6) no host");
  EXPECT_EQ(check("gate"), "error||gate request failed: curl: (6) no host");
  const std::size_t sent = tools_.calls("curl").size();
  tools_.add("xxd", "echo 'xxd broke ' >&2; exit 3");
  EXPECT_EQ(check("bybit"), "error||failed to build bybit signature: xxd broke");
  EXPECT_EQ(check("gate"), "error||failed to build gate signature: xxd broke");
  EXPECT_EQ(tools_.calls("curl").size(), sent);
}

TEST_F(LiveCheck, gate_is_asked_even_without_a_clock) {
  tools_.add("date", "exit 1");
  write_file(tools_.folder() / "answer", "{}");
  EXPECT_EQ(check("gate"), "invalid||gate rejected credentials: {}");
  EXPECT_EQ(tools_.calls("curl").at(0).at(6), "Timestamp: ");
}

TEST_F(LiveCheck, one_proof_in_the_probes_output_is_enough) {
  const std::vector<std::pair<std::string, Words>> proofs = {
      {"okx",
       {R"("code":"0")", R"("code": "0")", R"(\"code\":\"0\")", R"("posMode")", R"("acctLv")",
        R"("details")", R"("availBal")", R"("availEq")"}},
      {"bingx",
       {R"("code":0)", R"("code": 0)", R"(\"code\":0)", R"(\"code\": 0)", R"("balance")",
        R"("equity")", "availableMargin"}},
      {"kucoin",
       {R"("code":"200000")", R"(\"code\":\"200000\")", R"("availableBalance")",
        R"("accountEquity")"}},
      {"bitget", {R"("code":"00000")", R"("available")", R"("marginCoin")", R"("accountEquity")"}},
  };
  for (const auto& [exchange, needles] : proofs) {
    for (const std::string& needle : needles) {
      judge({{exchange, "[{\"body\": \"no\"}, {" + needle + "}]\n",
              "valid_trade_ready|read trade|live " + exchange + " auth validated"}});
    }
  }
}

TEST_F(LiveCheck, bingx_bybit_and_gate_need_no_passphrase) {
  credential_.passphrase = "";
  judge({{"bingx", R"("code":0)", "valid_trade_ready|read trade|live bingx auth validated"},
         {"bybit", R"("retCode":0)", "valid_read_only|read|live bybit auth validated"},
         {"gate", R"("user")", "valid_trade_ready|read trade|live gate auth validated"}});
}

TEST_F(LiveCheck, what_only_resembles_a_proof_is_a_refusal) {
  const std::vector<std::pair<std::string, std::string>> rows = {
      {"okx", R"({"code":"50111"})"},
      {"okx", R"({"code":0})"},
      {"okx", R"({"msg":"posMode details"})"},
      {"okx", R"({\"code\": \"0\"})"},
      {"bingx", R"({"code":100413})"},
      {"bingx", R"({"code":"0"})"},
      {"bingx", "balance equity"},
      {"kucoin", R"({"code":"400003"})"},
      {"kucoin", R"({"code": "200000"})"},
      {"bitget", R"({"code":"40006"})"},
      {"bitget", R"({"code": "00000"})"},
      {"bitget", "available"},
      {"bitget", "<urlopen error timed out>"}};
  for (const auto& [exchange, answer] : rows) {
    judge({{exchange, answer + " \r\n",
            "invalid||" + exchange + " rejected credentials: " + answer}});
  }
}

TEST_F(LiveCheck, a_probe_that_prints_nothing_or_fails_is_an_error) {
  for (const char* body : {"exit 0", "printf ' \\n'", "echo '\"code\":\"0\"'; exit 1"}) {
    tools_.add("python3", body);
    EXPECT_EQ(check("okx"), "error||failed to execute okx validation probes") << body;
    EXPECT_EQ(check("bingx"), "error||failed to execute bingx validation probes") << body;
    EXPECT_EQ(check("kucoin"), "error||failed to execute kucoin validation probes") << body;
    EXPECT_EQ(check("bitget"), "error||failed to execute bitget validation probe") << body;
  }
}

TEST_F(LiveCheck, a_probe_gets_its_values_as_literals_each_in_its_own_place) {
  write_file(tools_.folder() / "answer", "no");
  // A key that looks like the place of the secret must not take it.
  credential_ = {"any", "k\napi_secret = ''\n", "it's\\", "p\"p"};
  const std::vector<std::pair<std::string, Words>> sites = {
      {"okx",
       {"\nglobal_site = 'https://www.okx.com'\n", "\neea_site = 'https://eea.okx.com'\n",
        "\nus_site = 'https://us.okx.com'\n"}},
      {"bingx", {"\nsite = 'https://open-api.bingx.com'\n"}},
      {"kucoin", {"\nsite = 'https://api-futures.kucoin.com'\n"}},
      {"bitget", {"\nsite = 'https://api.bitget.com'\n"}}};
  for (const auto& [exchange, lines] : sites) {
    check(exchange);
    const Words call = tools_.calls("python3").back();
    ASSERT_EQ(call.size(), 2U);
    EXPECT_EQ(call[0], "-c");
    Words expected = lines;
    expected.push_back("\napi_key = 'k\\napi_secret = \\'\\'\\n'\n");
    expected.push_back("\napi_secret = 'it\\'s\\\\'\n");
    if (exchange != "bingx") {
      expected.push_back("\npassphrase = 'p\"p'\n");
    }
    for (const std::string& line : expected) {
      EXPECT_NE(call[1].find(line), std::string::npos) << exchange << ": " << line;
    }
    EXPECT_EQ(call[1].find(" = ''\n"), std::string::npos) << exchange << ": a place left empty";
  }
}

}  // namespace
}  // namespace morvane::connector
