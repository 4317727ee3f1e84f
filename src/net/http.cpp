#include "net/http.hpp"

#include <array>
#include <cstddef>
#include <utility>

namespace morvane::connector {
namespace {

HttpResult http_any(HttpMethod method, const std::string& url, const std::string& body,
                    const std::string& headers) {
  ShellLine line = ShellLine("curl -sS --max-time 20 -X ") + word_of(method) + " ";
  if (!headers.empty()) {
    line = line + ShellLine::quoted_by_caller(headers) + " ";
  }
  if (!body.empty()) {
    line = line + "--data " + shell_word(body) + " ";
  }
  CommandOutput result = run_command(line + shell_word(url));
  return {result.exit_code, std::move(result.output)};
}

}  // namespace

Literal word_of(HttpMethod method) {
  constexpr std::array<Literal, 3> words = {"GET", "POST", "DELETE"};
  return words[static_cast<std::size_t>(method)];
}

ShellLine header_arguments(const std::vector<std::string>& lines) {
  ShellLine arguments("");
  for (const std::string& line : lines) {
    arguments = arguments + "-H " + shell_word(line) + " ";
  }
  return arguments;
}

std::string make_headers(const std::vector<std::string>& lines) {
  return header_arguments(lines).text();
}

HttpResult http_get(const std::string& url, const std::string& headers) {
  return http_any(HttpMethod::get, url, "", headers);
}

HttpResult http_delete(const std::string& url, const std::string& headers) {
  return http_any(HttpMethod::del, url, "", headers);
}

HttpResult http_post_json(const std::string& url, const std::string& body,
                          const std::string& headers) {
  return http_any(HttpMethod::post, url, body, headers);
}

}  // namespace morvane::connector
