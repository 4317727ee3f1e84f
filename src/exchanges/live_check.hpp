#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "exchanges/catalogue.hpp"
#include "exchanges/probe_scripts.hpp"
#include "exchanges/validation.hpp"
#include "net/shell.hpp"

namespace morvane::connector {

// What the live checks share. `checked_at` is a UTC text to the second.

// Status invalid or error, with nothing permitted.
ValidateCredentialsResult invalid_result(const ValidateCredentialsRequest& request,
                                         const std::string& message, const std::string& checked_at);
ValidateCredentialsResult error_result(const ValidateCredentialsRequest& request,
                                       const std::string& message, const std::string& checked_at);

// Readable, and trade-ready or read-only as `can_trade` says.
ValidateCredentialsResult success_result(const ValidateCredentialsRequest& request, bool can_trade,
                                         bool withdrawal_enabled, const std::string& message,
                                         const std::string& checked_at);

bool contains_any(std::string_view text, const std::vector<std::string_view>& needles);

// One GET of `path` on the exchange, with these headers, at most 15 seconds.
CommandOutput ask_directly(const Exchange& exchange, Literal path,
                           const std::vector<std::string>& headers);

// A Python program that prints the answer, or a JSON array of answers, in which quotes of an answer
// come out as \". One answer that proves the key is enough.
struct Probe {
  probe_scripts::Script script;
  bool needs_passphrase;
  std::string_view nothing_printed;        // the message of a script that failed
  std::vector<std::string_view> evidence;  // any one of these in what it prints proves the key
};

// The whole of such a check; its other words are made of the exchange's id.
ValidateCredentialsResult run_probe(const Exchange& exchange,
                                    const ValidateCredentialsRequest& request, const Probe& probe);

// `value` as a single-quoted Python literal that reads back to the same text. Tab, line feed,
// carriage return, quote and backslash are escaped; every other byte stands as it is.
std::string py_string_literal(std::string_view value);

// Runs `script` with python3 and returns what it printed, trimmed; empty when it failed or printed
// nothing (a traceback is dropped).
std::string run_python(const std::string& script);

}  // namespace morvane::connector
