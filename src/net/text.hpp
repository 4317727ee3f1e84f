#pragma once

#include <cstddef>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

namespace morvane::connector {

// `text` without its trailing line feeds, carriage returns, spaces and tabs. Leading bytes stay.
std::string trim(std::string text);

// `form` with each "@" replaced by the next of `values`, which stand raw. As many of one as of the
// other.
std::string filled(std::string_view form, const std::vector<std::string>& values);

// `text` for the inside of a literal between two `quote`: tab, line feed, carriage return, the
// quote and backslash are escaped with a backslash, every other byte stands as it is.
std::string escaped(std::string_view text, char quote);

bool contains(std::string_view text, std::string_view needle);

const char* true_or_false(bool value);

// The `value`th of `names`, or "unknown".
std::string name_of(std::size_t value, std::initializer_list<const char*> names);

}  // namespace morvane::connector
