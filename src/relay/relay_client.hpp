#pragma once

#include <string>
#include <utility>

namespace morvane::connector {

// What one look at the relay found.
struct ServerStatus {
  std::string relay_url;  // as configured
  bool reachable = false;
  std::string health_status = "disconnected";  // then "reachable" or "unreachable"
  std::string message = "relay not checked";   // the relay's own answer when reachable
  std::string wallet_address;
};

// The one client of the platform's relay. Answers come back as the relay gave them, whatever their
// HTTP status; when curl fails a call answers its own fixed error JSON. Texts go into JSON bodies
// and the query unescaped.
class RelayClient {
 public:
  // `server_url` is https://, http://, wss:// or ws:// and a host; the last two stand for the
  // first two.
  explicit RelayClient(std::string server_url) : server_url_(std::move(server_url)) {}

  // Marks the client connected when it has a URL, and says so. Nothing is sent.
  bool connect();
  bool connected() const { return connected_; }
  const std::string& server_url() const { return server_url_; }  // for who shows it

  // Asks whether the relay answers, at most 10 seconds; `wallet` is only echoed.
  ServerStatus health(const std::string& wallet) const;

  // The binding calls, at most 15 seconds each. Failures: "bind_request_failed",
  // "bind_status_failed", "claim_token_failed". bind_status names the wallet in a header, the only
  // proof of identity that the relay gets, and leaves it out when empty.
  std::string bind_wallet(const std::string& wallet, const std::string& connector_id) const;
  std::string bind_status(const std::string& wallet, const std::string& connector_id) const;
  std::string claim_token(const std::string& token, const std::string& connector_id,
                          const std::string& connector_label) const;

 private:
  std::string server_url_;
  bool connected_ = false;
};

}  // namespace morvane::connector
