#include <string_view>
#include <utility>
#include <vector>

#include "exchanges/exchange_registry.hpp"
#include "exchanges/probes/probe_scripts.hpp"
#include "exchanges/python_probe.hpp"
#include "exchanges/validation.hpp"
#include "hosts.hpp"
#include "net/clock.hpp"

// OKX, BingX, KuCoin and Bitget: a Python program asks several hosts, endpoint versions or key
// versions and prints every answer; one answer that proves the key is enough.

namespace morvane::connector {
namespace {

using Assignment = std::pair<std::string_view, std::string>;

struct Probe {
  std::string_view script;
  std::vector<Assignment> hosts;
  bool needs_passphrase;
  std::string_view nothing_printed;        // the message of a script that failed
  std::vector<std::string_view> evidence;  // any one of these in the output proves the key
};

// A script holds a line "<name> = ''" for each value that it is to be given.
std::string with_values(std::string script, const std::vector<Assignment>& values) {
  for (const auto& [name, value] : values) {
    const std::string start = "\n" + std::string(name) + " = ";
    const std::size_t at = script.find(start + "''\n");
    if (at != std::string::npos) {
      script.replace(at + start.size(), 2, py_string_literal(value));
    }
  }
  return script;
}

// The frame of the four checks; their words are made of the exchange's id.
ValidateCredentialsResult run_probe(const ValidateCredentialsRequest& request, const Probe& probe) {
  const std::string checked_at = iso8601_now();
  const std::string& exchange = request.exchange;
  const StoredCredential& credential = request.credential;
  if (probe.needs_passphrase && credential.passphrase.empty()) {
    return invalid_result(request, exchange + " passphrase missing", checked_at);
  }
  const std::string script = with_values(with_values(std::string(probe.script), probe.hosts),
                                         {{"api_key", credential.api_key},
                                          {"api_secret", credential.api_secret},
                                          {"passphrase", credential.passphrase}});
  const std::string output = run_python(script);
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
                .hosts = {{"global_site", hosts::okx},
                          {"eea_site", hosts::okx_eea},
                          {"us_site", hosts::okx_us}},
                .needs_passphrase = true,
                .nothing_printed = "failed to execute okx validation probes",
                .evidence = {R"("code":"0")", R"("code": "0")", R"(\"code\":\"0\")", R"("posMode")",
                             R"("acctLv")", R"("details")", R"("availBal")", R"("availEq")"}});
}

ValidateCredentialsResult ExchangeRegistry::validate_bingx(
    const ValidateCredentialsRequest& request) const {
  return run_probe(request,
                   {.script = probe_scripts::bingx,
                    .hosts = {{"site", hosts::bingx}},
                    .needs_passphrase = false,
                    .nothing_printed = "failed to execute bingx validation probes",
                    .evidence = {R"("code":0)", R"("code": 0)", R"(\"code\":0)", R"(\"code\": 0)",
                                 R"("balance")", R"("equity")", "availableMargin"}});
}

ValidateCredentialsResult ExchangeRegistry::validate_kucoin(
    const ValidateCredentialsRequest& request) const {
  return run_probe(request, {.script = probe_scripts::kucoin,
                             .hosts = {{"site", hosts::kucoin_futures}},
                             .needs_passphrase = true,
                             .nothing_printed = "failed to execute kucoin validation probes",
                             .evidence = {R"("code":"200000")", R"(\"code\":\"200000\")",
                                          R"("availableBalance")", R"("accountEquity")"}});
}

ValidateCredentialsResult ExchangeRegistry::validate_bitget(
    const ValidateCredentialsRequest& request) const {
  return run_probe(request, {.script = probe_scripts::bitget,
                             .hosts = {{"site", hosts::bitget}},
                             .needs_passphrase = true,
                             .nothing_printed = "failed to execute bitget validation probe",
                             .evidence = {R"("code":"00000")", R"("available")", R"("marginCoin")",
                                          R"("accountEquity")"}});
}

}  // namespace morvane::connector
