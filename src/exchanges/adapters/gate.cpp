#include "exchanges/exchange_adapter.hpp"
#include "exchanges/live_check.hpp"
#include "net/clock.hpp"
#include "net/digest.hpp"
#include "net/text.hpp"

// Gate, API v4, USDT-settled futures. The platform's symbol is Gate's own contract name.
// https://www.gate.com/docs/developers/apiv4/en/#authentication

namespace morvane::connector {
namespace {

constexpr const char* accounts_path = "/api/v4/futures/usdt/accounts";

std::string pre_hash(const ExchangeRequest& request, const std::string& body_hash,
                     const std::string& timestamp) {
  return request.verb() + "\n" + request.path + "\n" + request.query + "\n" + body_hash + "\n" +
         timestamp;
}

std::vector<std::string> headers(const std::string& api_key, const std::string& timestamp,
                                 const std::string& signature) {
  return {"KEY: " + api_key, "Timestamp: " + timestamp, "SIGN: " + signature};
}

Signature sign(const ExchangeRequest& request, const StoredCredential& credential,
               const std::string& timestamp) {
  const std::string digest = hmac_sha512_hex(
      credential.api_secret, pre_hash(request, sha512_hex(request.body), timestamp));
  Signature signature{headers(credential.api_key, timestamp, digest), request.query};
  if (!request.body.empty()) {
    signature.headers.emplace_back("Content-Type: application/json");
  }
  return signature;
}

std::string order_path(const std::string& order_id) {
  return "/api/v4/futures/usdt/orders/" + order_id;
}

// A short order has a negative size; the quantity is not inspected, so "-3" sold becomes "--3".
ExchangeRequest limit_order(const LimitOrder& order, const char* sign, const char* tail) {
  return post_request("/api/v4/futures/usdt/orders",
                      filled(R"({"contract":"@","size":@@,"price":"@","tif":"gtc"@})", order.symbol,
                             sign, order.quantity, order.price, tail));
}

constexpr TradeAdapter trades = {
    // Meant: a POST whose parameters stand in the query, without body or content type.
    .set_leverage = [](const LimitOrder& order, int leverage) -> ExchangeRequest {
      return {.method = HttpMethod::post,
              .path = "/api/v4/futures/usdt/positions/" + order.symbol + "/leverage",
              .query = "leverage=" + std::to_string(leverage)};
    },
    .open =
        [](const LimitOrder& order) { return limit_order(order, order.is_long() ? "" : "-", ""); },
    .close =
        [](const LimitOrder& order) {
          return limit_order(order, order.is_long() ? "-" : "", R"(,"reduce_only":true)");
        },
    .funding =
        [](const std::string& symbol, int lookback_minutes, std::int64_t now_ms) {
          const std::int64_t start_sec = now_ms / 1000 - std::int64_t{lookback_minutes} * 60;
          return get_request(
              "/api/v4/futures/usdt/account_book",
              filled("type=fund&contract=@&from=@&limit=50", symbol, std::to_string(start_sec)));
        },
    .closing_order = [](const std::string& /*symbol*/,
                        const std::string& order_id) { return get_request(order_path(order_id)); },
    .closed_positions =
        [](const std::string& symbol) {
          return get_request("/api/v4/futures/usdt/my_trades", "contract=" + symbol + "&limit=20");
        },
    .report_key = "trades",
    .order_asked_only_with_id = true,
    .failed_order_ends_report = true,
    .report_has_one_timestamp = true,
};

ValidateCredentialsResult check(const Exchange& exchange,
                                const ValidateCredentialsRequest& request) {
  const StoredCredential& credential = request.credential;
  const std::string checked_at = iso8601_now();
  // Meant: neither of these two is checked; whatever a failed one leaves is sent.
  const std::string timestamp = trim(run_command(ShellLine("date +%s")).output);
  const std::string empty_body_hash = trim(
      run_command(ShellLine("printf '' | openssl dgst -sha512 -binary | xxd -p -c 256")).output);
  const CommandOutput digest =
      hmac_hex("sha512", "256", credential.api_secret,
               pre_hash(get_request(accounts_path), empty_body_hash, timestamp));
  if (digest.exit_code != 0) {
    return error_result(request, "failed to build gate signature: " + trim(digest.output),
                        checked_at);
  }
  const CommandOutput answer = ask_directly(
      exchange, accounts_path, headers(credential.api_key, timestamp, trim(digest.output)));
  if (answer.exit_code != 0) {
    return error_result(request, "gate request failed: " + trim(answer.output), checked_at);
  }
  if (!contains_any(answer.output, {R"("user")", R"("currency")", R"("available")"})) {
    return invalid_result(request, "gate rejected credentials: " + trim(answer.output), checked_at);
  }
  // Meant: permissions are not asked for.
  return success_result(request, true, false, "live gate auth validated", checked_at);
}

}  // namespace

extern constexpr ExchangeAdapter gate_adapter = {
    .timestamp = [] { return std::to_string(epoch_sec()); },
    .sign = sign,
    .balance = [] { return get_request(accounts_path); },
    // Meant: the symbol is not used; every held position comes back.
    .position =
        [](const std::string& /*symbol*/) {
          return get_request("/api/v4/futures/usdt/positions", "holding=true");
        },
    .order_status =
        [](const std::string& symbol, const std::string& order_id) {
          return get_request(order_path(order_id), "contract=" + symbol);
        },
    .cancel_order =
        [](const std::string& symbol, const std::string& order_id) {
          return delete_request(order_path(order_id), "contract=" + symbol);
        },
    .live_check = check,
    .trades = &trades,
};

}  // namespace morvane::connector
