#pragma once

#include <string>
#include <string_view>

namespace morvane::connector {

// `text` without its trailing line feeds, carriage returns, spaces and tabs. Leading bytes stay.
std::string trim(std::string text);

bool contains(std::string_view text, std::string_view needle);

}  // namespace morvane::connector
