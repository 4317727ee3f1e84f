#include "relay/relay_client.hpp"

#include <utility>

#include "net/json.hpp"
#include "net/shell.hpp"

namespace morvane::connector {
namespace {

std::string api_root(const std::string& url) {
  if (url.rfind("ws://", 0) == 0) {
    return "http://" + url.substr(5);
  }
  if (url.rfind("wss://", 0) == 0) {
    return "https://" + url.substr(6);
  }
  return url;
}

// Runs one binding call; `reason` is the answer of a curl that failed.
std::string call_relay(const ShellLine& line, const char* reason) {
  CommandOutput result = run_command(line);
  return result.exit_code == 0 ? std::move(result.output) : fail_json(reason);
}

ShellLine post_line(const std::string& url, const std::string& body) {
  return "curl -sS --max-time 15 -X POST -H 'Content-Type: application/json' --data " +
         shell_word(body) + " " + shell_word(url);
}

}  // namespace

bool RelayClient::connect() {
  connected_ = !server_url_.empty();
  return connected_;
}

ServerStatus RelayClient::health(const std::string& wallet) const {
  ServerStatus status;
  status.relay_url = server_url_;
  status.wallet_address = wallet;
  if (server_url_.empty()) {
    status.message = "relay url missing";
    return status;
  }
  CommandOutput result = run_command("curl -sS --max-time 10 " +
                                     shell_word(api_root(server_url_) + "/api/security/config"));
  status.reachable = result.exit_code == 0;
  status.health_status = status.reachable ? "reachable" : "unreachable";
  status.message = status.reachable ? std::move(result.output) : "relay health request failed";
  return status;
}

std::string RelayClient::bind_wallet(const std::string& wallet,
                                     const std::string& connector_id) const {
  const std::string body = json_object({{"wallet", json_raw(wallet)},
                                        {"connectorId", json_raw(connector_id)},
                                        {"connectorLabel", json_raw("macOS connector")}});
  return call_relay(post_line(api_root(server_url_) + "/api/connector/bind", body),
                    "bind_request_failed");
}

std::string RelayClient::bind_status(const std::string& wallet,
                                     const std::string& connector_id) const {
  ShellLine line("curl -sS --max-time 15 ");
  if (!wallet.empty()) {
    line = line + "-H " + shell_word("x-morvane-wallet: " + wallet) + " ";
  }
  return call_relay(line + shell_word(api_root(server_url_) +
                                      "/api/connector/bind-status?connectorId=" + connector_id),
                    "bind_status_failed");
}

std::string RelayClient::claim_token(const std::string& token, const std::string& connector_id,
                                     const std::string& connector_label) const {
  const std::string body = json_object({{"token", json_raw(token)},
                                        {"connectorId", json_raw(connector_id)},
                                        {"connectorLabel", json_raw(connector_label)}});
  return call_relay(post_line(api_root(server_url_) + "/api/connector/claim-token", body),
                    "claim_token_failed");
}

}  // namespace morvane::connector
