#include <string_view>
#include <vector>

#include "exchanges/exchange_registry.hpp"
#include "exchanges/python_probe.hpp"
#include "exchanges/validation.hpp"
#include "hosts.hpp"
#include "net/clock.hpp"
#include "probe_scripts.hpp"

// OKX, BingX, KuCoin and Bitget: a Python program asks several hosts, endpoint versions or key
// versions and prints every answer; one answer that proves the key is enough.

namespace morvane::connector {
namespace {

struct Probe {
  probe_scripts::Probe script;
  std::vector<std::string_view> sites;
  bool needs_passphrase;
  std::string_view nothing_printed;        // the message of a script that failed
  std::vector<std::string_view> evidence;  // any one of these in the output proves the key
};

// The values that a script is about, as it names them.
std::string assignments(const Probe& probe, const StoredCredential& credential) {
  std::string lines = "api_key = " + py_string_literal(credential.api_key) +
                      "\napi_secret = " + py_string_literal(credential.api_secret);
  if (probe.needs_passphrase) {
    lines += "\npassphrase = " + py_string_literal(credential.passphrase);
  }
  lines += "\nsites = [";
  for (const std::string_view site : probe.sites) {
    lines += py_string_literal(site) + ", ";
  }
  return lines + "]\n";
}

// The frame of the four checks; their words are made of the exchange's id.
ValidateCredentialsResult run_probe(const ValidateCredentialsRequest& request, const Probe& probe) {
  const std::string checked_at = iso8601_now();
  const std::string& exchange = request.exchange;
  const StoredCredential& credential = request.credential;
  if (probe.needs_passphrase && credential.passphrase.empty()) {
    return invalid_result(request, exchange + " passphrase missing", checked_at);
  }
  const std::string output =
      run_python(std::string(probe.script.imports) + assignments(probe, credential) +
                 std::string(probe.script.body));
  if (output.empty()) {
    return error_result(request, std::string(probe.nothing_printed), checked_at);
  }
  if (!contains_any(output, probe.evidence)) {
    return invalid_result(request, exchange + " rejected credentials: " + output, checked_at);
  }
  // Meant: these four are not asked for permissions; a key that reads counts as one that trades.
  return success_result(request, true, false, "live " + exchange + " auth validated", checked_at);
}

}  // namespace

// Three scripts print a JSON array of answers, so that quotes inside an answer come out as \".

ValidateCredentialsResult ExchangeRegistry::validate_okx(
    const ValidateCredentialsRequest& request) const {
  return run_probe(
      request, {.script = probe_scripts::okx,
                .sites = {hosts::okx, hosts::okx_eea, hosts::okx_us},
                .needs_passphrase = true,
                .nothing_printed = "failed to execute okx validation probes",
                .evidence = {R"("code":"0")", R"("code": "0")", R"(\"code\":\"0\")", R"("posMode")",
                             R"("acctLv")", R"("details")", R"("availBal")", R"("availEq")"}});
}

ValidateCredentialsResult ExchangeRegistry::validate_bingx(
    const ValidateCredentialsRequest& request) const {
  return run_probe(request,
                   {.script = probe_scripts::bingx,
                    .sites = {hosts::bingx},
                    .needs_passphrase = false,
                    .nothing_printed = "failed to execute bingx validation probes",
                    .evidence = {R"("code":0)", R"("code": 0)", R"(\"code\":0)", R"(\"code\": 0)",
                                 R"("balance")", R"("equity")", "availableMargin"}});
}

ValidateCredentialsResult ExchangeRegistry::validate_kucoin(
    const ValidateCredentialsRequest& request) const {
  return run_probe(request, {.script = probe_scripts::kucoin,
                             .sites = {hosts::kucoin_futures},
                             .needs_passphrase = true,
                             .nothing_printed = "failed to execute kucoin validation probes",
                             .evidence = {R"("code":"200000")", R"(\"code\":\"200000\")",
                                          R"("availableBalance")", R"("accountEquity")"}});
}

ValidateCredentialsResult ExchangeRegistry::validate_bitget(
    const ValidateCredentialsRequest& request) const {
  return run_probe(request, {.script = probe_scripts::bitget,
                             .sites = {hosts::bitget},
                             .needs_passphrase = true,
                             .nothing_printed = "failed to execute bitget validation probe",
                             .evidence = {R"("code":"00000")", R"("available")", R"("marginCoin")",
                                          R"("accountEquity")"}});
}

}  // namespace morvane::connector
