#pragma once

#include <string>
#include <vector>

namespace morvane::connector {

// What an operation asks of an exchange, unsigned.
struct ExchangeRequest {
  std::string method;                      // "GET", "POST" or "DELETE"
  std::string path;                        // begins with "/"
  std::string query;                       // what follows the "?"; empty for none
  std::string body;                        // the JSON text of a POST; empty for none
  std::vector<std::string> extra_headers;  // "Name: value", sent after the exchange's own

  // The path with its query, as it stands in the request line.
  std::string target() const { return query.empty() ? path : path + "?" + query; }
};

// A request whose parameters stand in the query.
inline ExchangeRequest request(const char* method, const std::string& path,
                               const std::string& query) {
  return {.method = method, .path = path, .query = query, .body = "", .extra_headers = {}};
}

inline ExchangeRequest get(const std::string& path, const std::string& query) {
  return request("GET", path, query);
}

inline ExchangeRequest post(const std::string& path, const std::string& body) {
  return {.method = "POST", .path = path, .query = "", .body = body, .extra_headers = {}};
}

// The same, ready to be sent: all that curl is told.
struct SignedRequest {
  std::string method;
  std::string url;
  std::vector<std::string> headers;  // "Name: value", in the order of sending
  std::string body;
};

}  // namespace morvane::connector
