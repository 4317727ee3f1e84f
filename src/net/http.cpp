#include "net/http.hpp"

#include <utility>

namespace morvane::connector {
namespace {

HttpResult http_any(Literal method, const std::string& url, const std::string& body,
                    const ShellLine& headers) {
  ShellLine line = ShellLine("curl -sS --max-time 20 -X ") + method + " ";
  if (!headers.text().empty()) {
    line = line + headers + " ";
  }
  if (!body.empty()) {
    line = line + "--data " + shell_word(body) + " ";
  }
  CommandOutput result = run_command(line + shell_word(url));
  return {result.exit_code, std::move(result.output)};
}

}  // namespace

ShellLine make_headers(const std::vector<std::string>& lines) {
  ShellLine arguments;
  for (const std::string& line : lines) {
    arguments = arguments + "-H " + shell_word(line) + " ";
  }
  return arguments;
}

HttpResult http_get(const std::string& url, const ShellLine& headers) {
  return http_any("GET", url, "", headers);
}

HttpResult http_delete(const std::string& url, const ShellLine& headers) {
  return http_any("DELETE", url, "", headers);
}

HttpResult http_post_json(const std::string& url, const std::string& body,
                          const ShellLine& headers) {
  return http_any("POST", url, body, headers);
}

}  // namespace morvane::connector
