#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace morvane::connector {

// The value of the first string member `key` anywhere in `json`, nested objects included; empty
// when there is none. Exactly what the first match of the expression "KEY"\s*:\s*"([^"]+)" would
// capture: an empty value is no match, an escaped quote ends the value, numbers are not read. Any
// bytes of any length are scanned in linear time and constant stack. `key` holds no quote.
std::string extract_json_string(std::string_view json, std::string_view key);

// The numbers between the dots of `text`. A piece counts up to its first non-digit; one that
// starts with no number, or is out of an int's range, is 0.
std::vector<int> parse_version_parts(const std::string& text);

// -1, 0 or 1 as version `a` is older than, equal to or newer than `b`; missing parts count as 0.
int compare_versions(const std::string& a, const std::string& b);

}  // namespace morvane::connector
