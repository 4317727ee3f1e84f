#include "exchanges/live_check.hpp"

#include <algorithm>
#include <utility>

#include "net/clock.hpp"
#include "net/http.hpp"
#include "net/text.hpp"

namespace morvane::connector {
namespace {

ValidateCredentialsResult plain_result(const ValidateCredentialsRequest& request,
                                       ExchangeConnectionStatus status, const std::string& message,
                                       const std::string& checked_at) {
  return {
      .exchange = request.exchange, .status = status, .message = message, .checked_at = checked_at};
}

// The exchange's hosts as a Python list.
std::string sites_of(const Exchange& exchange) {
  std::string list = "[" + py_string_literal(exchange.host.text());
  for (const Literal host : exchange.regional_hosts) {
    if (!host.text().empty()) {
      list += ", " + py_string_literal(host.text());
    }
  }
  return list + "]";
}

// The program: the imports, an assignment for each value that the body uses, the body.
std::string script_of(const Exchange& exchange, const StoredCredential& credential,
                      const Probe& probe) {
  std::string script(probe.script.imports);
  script += "api_key = " + py_string_literal(credential.api_key);
  script += "\napi_secret = " + py_string_literal(credential.api_secret);
  if (probe.needs_passphrase) {
    script += "\npassphrase = " + py_string_literal(credential.passphrase);
  }
  script += "\nsites = " + sites_of(exchange) + "\n";
  return script.append(probe.script.body);
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

CommandOutput ask_directly(const Exchange& exchange, Literal path,
                           const std::vector<std::string>& headers) {
  return run_command("curl -sS --max-time 15 " + make_headers(headers) + exchange.host + path);
}

ValidateCredentialsResult run_probe(const Exchange& exchange,
                                    const ValidateCredentialsRequest& request, const Probe& probe) {
  const std::string checked_at = iso8601_now();
  const std::string& id = request.exchange;
  if (probe.needs_passphrase && request.credential.passphrase.empty()) {
    return invalid_result(request, id + " passphrase missing", checked_at);
  }
  const std::string output = run_python(script_of(exchange, request.credential, probe));
  if (output.empty()) {
    return error_result(request, std::string(probe.nothing_printed), checked_at);
  }
  if (!contains_any(output, probe.evidence)) {
    return invalid_result(request, id + " rejected credentials: " + output, checked_at);
  }
  // Meant: permissions are not asked for; a key that reads counts as one that trades.
  return success_result(request, true, false, "live " + id + " auth validated", checked_at);
}

std::string py_string_literal(std::string_view value) { return "'" + escaped(value, '\'') + "'"; }

std::string run_python(const std::string& script) {
  CommandOutput result = run_command("python3 -c " + shell_word(script));
  return result.exit_code == 0 ? trim(std::move(result.output)) : "";
}

}  // namespace morvane::connector
