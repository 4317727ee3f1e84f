#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "net/shell.hpp"

namespace morvane::connector {

// The outcome of one curl run. There is no HTTP status: an answer of 4xx or 5xx is a completed
// transfer with the error document in `body`.
struct HttpResult {
  // 0 when the transfer completed, else curl's own exit code (curl(1), EXIT CODES), or -1 when no
  // shell could be started.
  std::int32_t exit_code = 0;
  // The answer, or curl's one-line error message.
  std::string body;
};

// `lines` ("Name: value") as curl "-H" arguments, each quoted, each followed by one blank. curl
// leaves out a header whose value is empty.
ShellLine make_headers(const std::vector<std::string>& lines);

// One request each, at most 20 seconds. `headers` are arguments of curl, as make_headers writes
// them. A POST with an empty `body` sends no data at all.
HttpResult http_get(const std::string& url, const ShellLine& headers);
HttpResult http_delete(const std::string& url, const ShellLine& headers);
HttpResult http_post_json(const std::string& url, const std::string& body,
                          const ShellLine& headers);

}  // namespace morvane::connector
