#include "net/http.hpp"

#include <utility>

#include "net/shell.hpp"

namespace morvane::connector {
namespace {

HttpResult http_any(const char* method, const std::string& url, const std::string& body,
                    const std::string& headers) {
  std::string command = std::string("curl -sS --max-time 20 -X ") + method + " ";
  if (!headers.empty()) {
    command += headers + " ";
  }
  if (!body.empty()) {
    command += "--data " + shell_escape(body) + " ";
  }
  command += shell_escape(url);
  CommandOutput result = run_command(command);
  return {result.exit_code, std::move(result.output)};
}

}  // namespace

std::string make_headers(const std::vector<std::string>& lines) {
  std::string fragment;
  for (const std::string& line : lines) {
    fragment += "-H " + shell_escape(line) + " ";
  }
  return fragment;
}

HttpResult http_get(const std::string& url, const std::string& headers) {
  return http_any("GET", url, "", headers);
}

HttpResult http_delete(const std::string& url, const std::string& headers) {
  return http_any("DELETE", url, "", headers);
}

HttpResult http_post_json(const std::string& url, const std::string& body,
                          const std::string& headers) {
  return http_any("POST", url, body, headers);
}

}  // namespace morvane::connector
