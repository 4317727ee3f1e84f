#include "app/command_dispatcher.hpp"

#include <array>
#include <cstddef>
#include <iostream>
#include <string>
#include <string_view>
#include <vector>

namespace morvane::connector {
namespace {

using Arguments = std::vector<std::string>;  // argv: the program, the command, its arguments

const char* word(bool value) { return value ? "true" : "false"; }

std::string argument_or(const Arguments& args, std::size_t index, const std::string& otherwise) {
  return index < args.size() ? args[index] : otherwise;
}

// Base 10; white space before it and any text after it are ignored. Throws on text without a
// number and on one out of range, on purpose uncaught: nothing may be traded on a guess.
int number(const std::string& text) { return std::stoi(text); }

int print_json(const std::string& json) {
  std::cout << json << '\n';
  return 0;
}

void print_snapshot(const ConnectorSnapshot& snapshot) {
  std::cout << "connector_health=" << to_string(snapshot.health) << '\n'
            << "relay_connected=" << word(snapshot.relay_connected) << '\n'
            << "device_id=" << snapshot.identity.device_id << '\n'
            << "device_label=" << snapshot.identity.device_label << '\n'
            << "platform=" << snapshot.identity.platform << '\n'
            << "paired=" << word(snapshot.identity.paired) << '\n';
  if (!snapshot.identity.owner_wallet.empty()) {
    std::cout << "owner_wallet=" << snapshot.identity.owner_wallet << '\n';
  }
  std::cout << "vault_backend=" << snapshot.vault_backend << '\n';
  for (const ExchangeConnection& exchange : snapshot.exchanges) {
    std::cout << "exchange=" << exchange.exchange << " status=" << to_string(exchange.status)
              << " credentials_present=" << word(exchange.credentials_present) << " note=\""
              << exchange.message << "\"\n";
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
            << "can_read=" << word(result.can_read) << '\n'
            << "can_trade=" << word(result.can_trade) << '\n'
            << "withdrawal_enabled=" << word(result.withdrawal_enabled) << '\n'
            << "credentials_saved=" << word(result.credentials_saved) << '\n'
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
            << "removed=" << word(removed) << '\n';
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
    std::cout << "exchange=" << row.exchange << " validate=" << word(row.validate)
              << " balance=" << word(row.balance) << " position=" << word(row.position)
              << " funding=" << word(row.funding) << " close_report=" << word(row.close_report)
              << " open=" << word(row.open) << " close=" << word(row.close)
              << " cancel=" << word(row.cancel) << " status=" << word(row.status)
              << " leverage_sync=" << word(row.leverage_sync)
              << " margin_mode_sync=" << word(row.margin_mode_sync) << '\n';
  }
  return 0;
}

int bind_wallet(ConnectorApp& app, const Arguments&) {
  return print_json(app.bind_wallet_to_server());
}

int bind_status(ConnectorApp& app, const Arguments&) { return print_json(app.binding_status()); }

int claim_token(ConnectorApp& app, const Arguments& args) {
  return print_json(app.claim_bind_token(args[2]));
}

int disconnect_binding(ConnectorApp& app, const Arguments&) {
  return print_json(app.disconnect_binding());
}

int balance(ConnectorApp& app, const Arguments& args) {
  return print_json(app.get_balance(args[2]));
}

int get_position(ConnectorApp& app, const Arguments& args) {
  return print_json(app.get_position(args[2], args[3]));
}

int order_status(ConnectorApp& app, const Arguments& args) {
  return print_json(app.get_order_status(args[2], args[3], args[4]));
}

int cancel_order(ConnectorApp& app, const Arguments& args) {
  return print_json(app.cancel_order(args[2], args[3], args[4]));
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

int place_close(ConnectorApp& app, const Arguments& args) {
  return print_json(app.place_close(args[2], args[3], args[4], args[5], args[6]));
}

int update_check(ConnectorApp& app, const Arguments&) { return print_json(app.update_check()); }

int update_download(ConnectorApp& app, const Arguments&) {
  return print_json(app.update_download());
}

int update_apply(ConnectorApp& app, const Arguments&) { return print_json(app.update_apply()); }

int server_health(ConnectorApp& app, const Arguments&) { return print_json(app.server_health()); }

struct Command {
  std::string_view name;
  std::size_t minimum;         // arguments, the program and the command counted
  std::string_view arguments;  // as the usage shows them
  int (*run)(ConnectorApp& app, const Arguments& args);
};

constexpr std::array<Command, 22> commands = {{
    {"status", 2, "", status},
    {"validate", 5, "<exchange> <api_key> <api_secret> [passphrase]", validate},
    {"load-credentials", 3, "<exchange>", load_credentials},
    {"delete-credentials", 3, "<exchange>", delete_credentials},
    {"set-wallet", 3, "<public_evm_address>", set_wallet},
    {"bind-wallet", 2, "", bind_wallet},
    {"bind-status", 2, "", bind_status},
    {"claim-token", 3, "<token>", claim_token},
    {"disconnect-binding", 2, "", disconnect_binding},
    {"capabilities", 2, "", capabilities},
    {"balance", 3, "<exchange>", balance},
    {"get-position", 4, "<exchange> <symbol>", get_position},
    {"order-status", 5, "<exchange> <symbol> <order_id>", order_status},
    {"cancel-order", 5, "<exchange> <symbol> <order_id>", cancel_order},
    {"funding", 4, "<exchange> <symbol> [lookback_minutes]", funding},
    {"close-report", 4, "<exchange> <symbol> [order_id]", close_report},
    {"place-open", 8, "<exchange> <symbol> <side> <quantity> <price> <leverage>", place_open},
    {"place-close", 7, "<exchange> <symbol> <side> <quantity> <price>", place_close},
    {"update-check", 2, "", update_check},
    {"update-download", 2, "", update_download},
    {"update-apply", 2, "", update_apply},
    {"server-health", 2, "", server_health},
}};

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
    if (args.size() < command.minimum) {
      std::cerr << "usage: morvane-connector " << command.name << ' ' << command.arguments << '\n';
      return 1;
    }
    return command.run(app_, args);
  }
  std::cerr << "unknown command: " << args[1] << '\n';
  return 1;
}

}  // namespace morvane::connector
