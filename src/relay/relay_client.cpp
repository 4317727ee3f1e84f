#include "relay/relay_client.hpp"

#include <utility>

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
std::string call_relay(const std::string& command, const std::string& reason) {
  CommandOutput result = run_command(command);
  if (result.exit_code != 0) {
    return R"({"status":"error","reason":")" + reason + "\"}";
  }
  return std::move(result.output);
}

std::string post_command(const std::string& url, const std::string& body) {
  return "curl -sS --max-time 15 -X POST -H 'Content-Type: application/json' --data " +
         shell_escape(body) + " " + shell_escape(url);
}

}  // namespace

RelayClient::RelayClient(std::string server_url) : server_url_(std::move(server_url)) {}

bool RelayClient::connect() {
  connected_ = !server_url_.empty();
  return connected_;
}

bool RelayClient::connected() const { return connected_; }

const std::string& RelayClient::server_url() const { return server_url_; }

ServerStatus RelayClient::health(const std::string& wallet) const {
  ServerStatus status;
  status.relay_url = server_url_;
  status.wallet_address = wallet;
  if (server_url_.empty()) {
    status.message = "relay url missing";
    return status;
  }
  CommandOutput result = run_command("curl -sS --max-time 10 " +
                                     shell_escape(api_root(server_url_) + "/api/security/config"));
  status.reachable = result.exit_code == 0;
  status.health_status = status.reachable ? "reachable" : "unreachable";
  status.message = status.reachable ? std::move(result.output) : "relay health request failed";
  return status;
}

std::string RelayClient::bind_wallet(const std::string& wallet,
                                     const std::string& connector_id) const {
  return call_relay(post_command(api_root(server_url_) + "/api/connector/bind",
                                 R"({"wallet":")" + wallet + R"(","connectorId":")" + connector_id +
                                     R"(","connectorLabel":"macOS connector"})"),
                    "bind_request_failed");
}

std::string RelayClient::bind_status(const std::string& wallet,
                                     const std::string& connector_id) const {
  std::string command = "curl -sS --max-time 15 ";
  if (!wallet.empty()) {
    command += "-H " + shell_escape("x-morvane-wallet: " + wallet) + " ";
  }
  return call_relay(
      command + shell_escape(api_root(server_url_) +
                             "/api/connector/bind-status?connectorId=" + connector_id),
      "bind_status_failed");
}

std::string RelayClient::claim_token(const std::string& token, const std::string& connector_id,
                                     const std::string& connector_label) const {
  return call_relay(post_command(api_root(server_url_) + "/api/connector/claim-token",
                                 R"({"token":")" + token + R"(","connectorId":")" + connector_id +
                                     R"(","connectorLabel":")" + connector_label + "\"}"),
                    "claim_token_failed");
}

}  // namespace morvane::connector
