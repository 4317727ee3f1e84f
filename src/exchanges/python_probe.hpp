#pragma once

#include <string>
#include <string_view>

namespace morvane::connector {

// `value` as a single-quoted Python literal that reads back to the same text. Tab, line feed,
// carriage return, quote and backslash are escaped; every other byte stands as it is.
std::string py_string_literal(std::string_view value);

// Runs `script` with python3 and returns what it printed, trimmed; empty when it failed or printed
// nothing (a traceback is dropped).
std::string run_python(const std::string& script);

}  // namespace morvane::connector
