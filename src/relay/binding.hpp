#pragma once

#include <optional>
#include <string>

namespace morvane::connector {

// What the relay's answers say, judged by substrings alone. Meant: no JSON is parsed, so a blank
// after a colon is not recognised.

// The answer to a claim leaves the binding to the owner's signature.
bool is_claimed(const std::string& response);

// The text after the first "wallet":" up to the next quote; nothing when it holds a control
// character, which no JSON text can hold: a line feed would begin a line of the state file.
std::optional<std::string> wallet_in(const std::string& response);

}  // namespace morvane::connector
