#include "net/http.hpp"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "net/shell.hpp"
#include "support.hpp"

namespace morvane::connector {
namespace {

using test::every_byte;
using test::Tools;
using Words = std::vector<std::string>;

TEST(MakeHeaders, each_line_is_one_quoted_argument_and_a_blank) {
  EXPECT_EQ(make_headers({}), "");
  EXPECT_EQ(make_headers({"KEY: k'1"}), R"(-H 'KEY: k'\''1' )");
  EXPECT_EQ(make_headers({"A: 1", "", "B: $x"}), "-H 'A: 1' -H '' -H 'B: $x' ");
}

TEST(Http, curl_gets_exactly_these_arguments) {
  const std::string url = "https://host/path?a=1&b='$(x)' \"y\"";
  const std::string headers = make_headers({"KEY: " + every_byte(), "Empty: "});
  const Tools tools;
  tools.add("curl", "printf answer");
  for (const HttpResult& result :
       {http_get(url, headers), http_delete(url, ""), http_post_json(url, "{\"a\":'b'}\n", headers),
        http_post_json(url, "", headers), http_post_json(url, "-d", "")}) {
    EXPECT_EQ(result.exit_code, 0);
    EXPECT_EQ(result.body, "answer");
  }
  const std::string key = "KEY: " + every_byte();
  EXPECT_EQ(tools.calls("curl"),
            (std::vector<Words>{
                {"-sS", "--max-time", "20", "-X", "GET", "-H", key, "-H", "Empty: ", url},
                {"-sS", "--max-time", "20", "-X", "DELETE", url},
                {"-sS", "--max-time", "20", "-X", "POST", "-H", key, "-H", "Empty: ", "--data",
                 "{\"a\":'b'}\n", url},
                {"-sS", "--max-time", "20", "-X", "POST", "-H", key, "-H", "Empty: ", url},
                {"-sS", "--max-time", "20", "-X", "POST", "--data", "-d", url},
            }));
}

TEST(Http, the_body_is_what_curl_printed_and_its_exit_code_is_passed_on) {
  const Tools tools;
  tools.add("curl", "printf ' body\\n\\n'; exit 0");
  EXPECT_EQ(http_get("https://host", "").body, " body\n\n");
  tools.add("curl", "echo 'curl: (28) timed out' >&2; exit 28");
  const HttpResult failed = http_get("https://host", "");
  EXPECT_EQ(failed.exit_code, 28);
  EXPECT_EQ(failed.body, "curl: (28) timed out\n");
}

TEST(Http, without_curl_the_call_fails_and_does_not_throw) {
  const Tools no_tools("");
  EXPECT_EQ(http_post_json("https://host", "{}", "").exit_code, 127);
}

// The real curl: nothing listens on this port of the loopback address.
TEST(Http, an_unreachable_host_gives_curls_own_exit_code) {
  const test::Environment no_proxy("no_proxy", "*");
  const HttpResult result = http_get("http://127.0.0.1:1/", "");
  EXPECT_EQ(result.exit_code, 7);
  EXPECT_NE(result.body.find("curl: (7)"), std::string::npos) << result.body;
}

}  // namespace
}  // namespace morvane::connector
