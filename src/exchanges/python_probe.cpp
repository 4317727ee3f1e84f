#include "exchanges/python_probe.hpp"

#include <utility>

#include "net/shell.hpp"
#include "net/text.hpp"

namespace morvane::connector {

std::string py_string_literal(std::string_view value) {
  std::string literal = "'";
  for (const char byte : value) {
    switch (byte) {
      case '\t':
        literal += "\\t";
        break;
      case '\n':
        literal += "\\n";
        break;
      case '\r':
        literal += "\\r";
        break;
      case '\'':
      case '\\':
        literal += '\\';
        [[fallthrough]];
      default:
        literal += byte;
    }
  }
  return literal += '\'';
}

std::string run_python(const std::string& script) {
  CommandOutput result = run_command("python3 -c " + shell_escape(script));
  return result.exit_code == 0 ? trim(std::move(result.output)) : "";
}

}  // namespace morvane::connector
