#include "app/command_dispatcher.hpp"

#include <algorithm>
#include <array>
#include <cstddef>
#include <iostream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "net/text.hpp"

namespace morvane::connector {
namespace {

using Arguments = std::vector<std::string>;  // argv: the program, the command, its arguments

std::string argument_or(const Arguments& args, std::size_t index, const std::string& otherwise) {
  return index < args.size() ? args[index] : otherwise;
}

// Base 10; white space before it and any text after it are ignored. Meant: on text without a number
// and on one out of range it throws, and nothing catches that.
int number(const std::string& text) { return std::stoi(text); }

int print_json(const std::string& json) {
  std::cout << json << '\n';
  return 0;
}

// How many texts an operation of ConnectorApp takes.
template <typename... Texts>
constexpr std::size_t count_of_texts(std::string (ConnectorApp::*)(Texts...)) {
  return sizeof...(Texts);
}
template <typename... Texts>
constexpr std::size_t count_of_texts(std::string (ConnectorApp::*)(Texts...) const) {
  return sizeof...(Texts);
}

// The handler of a command whose arguments are the operation's, in order.
template <auto operation>
int forward(ConnectorApp& app, const Arguments& args) {
  const auto call = [&]<std::size_t... index>(std::index_sequence<index...>) {
    return (app.*operation)(args[index + 2]...);
  };
  return print_json(call(std::make_index_sequence<count_of_texts(operation)>()));
}

void print_snapshot(const ConnectorSnapshot& snapshot) {
  std::cout << "connector_health=" << to_string(snapshot.health) << '\n'
            << "relay_connected=" << true_or_false(snapshot.relay_connected) << '\n'
            << "device_id=" << snapshot.identity.device_id << '\n'
            << "device_label=" << snapshot.identity.device_label << '\n'
            << "platform=" << snapshot.identity.platform << '\n'
            << "paired=" << true_or_false(snapshot.identity.paired) << '\n';
  if (!snapshot.identity.owner_wallet.empty()) {
    std::cout << "owner_wallet=" << snapshot.identity.owner_wallet << '\n';
  }
  std::cout << "vault_backend=" << snapshot.vault_backend << '\n';
  for (const ExchangeConnection& exchange : snapshot.exchanges) {
    std::cout << "exchange=" << exchange.exchange << " status=" << to_string(exchange.status)
              << " credentials_present=" << true_or_false(exchange.credentials_present)
              << " note=\"" << exchange.message << "\"\n";
  }
}

int status(ConnectorApp& app, const Arguments&) {
  print_snapshot(app.snapshot());
  return 0;
}

int validate(ConnectorApp& app, const Arguments& args) {
  const ValidateCredentialsResult result =
      app.validate_and_save({.exchange = args[2],
                             .credential = {.exchange = args[2],
                                            .api_key = args[3],
                                            .api_secret = args[4],
                                            .passphrase = argument_or(args, 5, "")}});
  std::cout << "exchange=" << result.exchange << '\n'
            << "status=" << to_string(result.status) << '\n'
            << "can_read=" << true_or_false(result.can_read) << '\n'
            << "can_trade=" << true_or_false(result.can_trade) << '\n'
            << "withdrawal_enabled=" << true_or_false(result.withdrawal_enabled) << '\n'
            << "credentials_saved=" << true_or_false(result.credentials_saved) << '\n'
            << "checked_at=" << result.checked_at << '\n'
            << "reason=" << result.message << '\n';
  return result.credentials_saved ? 0 : 2;
}

int load_credentials(ConnectorApp& app, const Arguments& args) {
  const auto credential = app.load_exchange_credentials(args[2]);
  if (!credential) {
    std::cout << "status=missing\n";
    return 2;
  }
  std::cout << "status=ok\n"
            << "exchange=" << credential->exchange << '\n'
            << "api_key=" << credential->api_key << '\n'
            << "api_secret=" << credential->api_secret << '\n'
            << "passphrase=" << credential->passphrase << '\n';
  return 0;
}

int delete_credentials(ConnectorApp& app, const Arguments& args) {
  const bool removed = app.delete_exchange_credentials(args[2]);
  std::cout << "status=" << (removed ? "ok" : "error") << '\n'
            << "exchange=" << args[2] << '\n'
            << "removed=" << true_or_false(removed) << '\n';
  return removed ? 0 : 2;
}

int set_wallet(ConnectorApp& app, const Arguments& args) {
  const bool saved = app.set_owner_wallet(args[2]);
  const PairingState pairing = app.pairing_state();
  if (!pairing.owner_wallet_address.empty()) {
    std::cout << "owner_wallet_address=" << pairing.owner_wallet_address << '\n';
  }
  std::cout << "pairing_status=" << pairing.pairing_status << '\n';
  return saved ? 0 : 2;
}

int capabilities(ConnectorApp& app, const Arguments&) {
  for (const ExchangeCapabilityMatrix& row : app.capability_matrix()) {
    std::cout << "exchange=" << row.exchange << " validate=" << true_or_false(row.validate)
              << " balance=" << true_or_false(row.balance)
              << " position=" << true_or_false(row.position)
              << " funding=" << true_or_false(row.funding)
              << " close_report=" << true_or_false(row.close_report)
              << " open=" << true_or_false(row.open) << " close=" << true_or_false(row.close)
              << " cancel=" << true_or_false(row.cancel) << " status=" << true_or_false(row.status)
              << " leverage_sync=" << true_or_false(row.leverage_sync)
              << " margin_mode_sync=" << true_or_false(row.margin_mode_sync) << '\n';
  }
  return 0;
}

int funding(ConnectorApp& app, const Arguments& args) {
  return print_json(app.get_funding(args[2], args[3], number(argument_or(args, 4, "180"))));
}

int close_report(ConnectorApp& app, const Arguments& args) {
  return print_json(app.get_close_report(args[2], args[3], argument_or(args, 4, "")));
}

int place_open(ConnectorApp& app, const Arguments& args) {
  return print_json(app.place_open(args[2], args[3], args[4], args[5], args[6], number(args[7])));
}

struct Command {
  std::string_view name;
  std::string_view arguments;  // as the usage shows them: <needed>, [optional]
  int (*run)(ConnectorApp& app, const Arguments& args);

  // The program and the command counted.
  std::size_t least_count() const {
    return 2 + static_cast<std::size_t>(std::count(arguments.begin(), arguments.end(), '<'));
  }
};

constexpr auto commands = std::to_array<Command>({
    {"status", "", status},
    {"validate", "<exchange> <api_key> <api_secret> [passphrase]", validate},
    {"load-credentials", "<exchange>", load_credentials},
    {"delete-credentials", "<exchange>", delete_credentials},
    {"set-wallet", "<public_evm_address>", set_wallet},
    {"bind-wallet", "", forward<&ConnectorApp::bind_wallet_to_server>},
    {"bind-status", "", forward<&ConnectorApp::binding_status>},
    {"claim-token", "<token>", forward<&ConnectorApp::claim_bind_token>},
    {"disconnect-binding", "", forward<&ConnectorApp::disconnect_binding>},
    {"capabilities", "", capabilities},
    {"balance", "<exchange>", forward<&ConnectorApp::get_balance>},
    {"get-position", "<exchange> <symbol>", forward<&ConnectorApp::get_position>},
    {"order-status", "<exchange> <symbol> <order_id>", forward<&ConnectorApp::get_order_status>},
    {"cancel-order", "<exchange> <symbol> <order_id>", forward<&ConnectorApp::cancel_order>},
    {"funding", "<exchange> <symbol> [lookback_minutes]", funding},
    {"close-report", "<exchange> <symbol> [order_id]", close_report},
    {"place-open", "<exchange> <symbol> <side> <quantity> <price> <leverage>", place_open},
    {"place-close", "<exchange> <symbol> <side> <quantity> <price>",
     forward<&ConnectorApp::place_close>},
    {"update-check", "", forward<&ConnectorApp::update_check>},
    {"update-download", "", forward<&ConnectorApp::update_download>},
    {"update-apply", "", forward<&ConnectorApp::update_apply>},
    {"server-health", "", forward<&ConnectorApp::server_health>},
});

int fail_with_general_usage() {
  std::cerr << "usage: morvane-connector ";
  char separator = '<';
  for (const Command& command : commands) {
    std::cerr << separator << command.name;
    separator = '|';
  }
  std::cerr << "> [args]\n";
  return 1;
}

}  // namespace

CommandDispatcher::CommandDispatcher(ConnectorApp& app) : app_(app) {}

int CommandDispatcher::run_cli(int argc, char** argv) {
  const Arguments args(argv, argv + argc);
  if (args.size() < 2) {
    return fail_with_general_usage();
  }
  for (const Command& command : commands) {
    if (command.name != args[1]) {
      continue;
    }
    if (args.size() < command.least_count()) {
      std::cerr << "usage: morvane-connector " << command.name << ' ' << command.arguments << '\n';
      return 1;
    }
    return command.run(app_, args);
  }
  std::cerr << "unknown command: " << args[1] << '\n';
  return 1;
}

}  // namespace morvane::connector
