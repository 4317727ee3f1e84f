#include "app/command_dispatcher.hpp"

#include <algorithm>
#include <array>
#include <cstddef>
#include <functional>
#include <iostream>
#include <iterator>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace morvane::connector {
namespace {

using Arguments = std::span<const std::string>;  // a command's own, without its name
using Optional = std::optional<std::string>;     // one that may be left out

// Base 10; white space before it and any text after it are ignored. Meant: on text without a number
// and on one out of range it throws, and nothing catches that.
int number(const std::string& text) { return std::stoi(text); }

void print_snapshot(const ConnectorSnapshot& snapshot) {
  std::cout << "connector_health=" << to_string(snapshot.health) << '\n'
            << "relay_connected=" << snapshot.relay_connected << '\n'
            << "device_id=" << snapshot.identity.device_id << '\n'
            << "device_label=" << snapshot.identity.device_label << '\n'
            << "platform=" << snapshot.identity.platform << '\n'
            << "paired=" << snapshot.identity.paired << '\n';
  if (!snapshot.identity.owner_wallet.empty()) {
    std::cout << "owner_wallet=" << snapshot.identity.owner_wallet << '\n';
  }
  std::cout << "vault_backend=" << snapshot.vault_backend << '\n';
  for (const ExchangeConnection& exchange : snapshot.exchanges) {
    std::cout << "exchange=" << exchange.exchange << " status=" << to_string(exchange.status)
              << " credentials_present=" << exchange.credentials_present << " note=\""
              << exchange.message << "\"\n";
  }
}

int status(ConnectorApp& app) {
  print_snapshot(app.snapshot());
  return 0;
}

int validate(ConnectorApp& app, const std::string& exchange, const std::string& api_key,
             const std::string& api_secret, const Optional& passphrase) {
  const ValidateCredentialsResult result =
      app.validate_and_save({.exchange = exchange,
                             .credential = {.exchange = exchange,
                                            .api_key = api_key,
                                            .api_secret = api_secret,
                                            .passphrase = passphrase.value_or("")}});
  std::cout << "exchange=" << result.exchange << '\n'
            << "status=" << to_string(result.status) << '\n'
            << "can_read=" << result.can_read << '\n'
            << "can_trade=" << result.can_trade << '\n'
            << "withdrawal_enabled=" << result.withdrawal_enabled << '\n'
            << "credentials_saved=" << result.credentials_saved << '\n'
            << "checked_at=" << result.checked_at << '\n'
            << "reason=" << result.message << '\n';
  return result.credentials_saved ? 0 : 2;
}

int load_credentials(ConnectorApp& app, const std::string& exchange) {
  const auto credential = app.load_exchange_credentials(exchange);
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

int delete_credentials(ConnectorApp& app, const std::string& exchange) {
  const bool removed = app.delete_exchange_credentials(exchange);
  std::cout << "status=" << (removed ? "ok" : "error") << '\n'
            << "exchange=" << exchange << '\n'
            << "removed=" << removed << '\n';
  return removed ? 0 : 2;
}

int set_wallet(ConnectorApp& app, const std::string& address) {
  const bool saved = app.set_owner_wallet(address);
  const PairingState pairing = app.pairing_state();
  if (!pairing.owner_wallet_address.empty()) {
    std::cout << "owner_wallet_address=" << pairing.owner_wallet_address << '\n';
  }
  std::cout << "pairing_status=" << pairing.pairing_status << '\n';
  return saved ? 0 : 2;
}

int capabilities(ConnectorApp& app) {
  for (const ExchangeCapabilityMatrix& row : app.capability_matrix()) {
    std::cout << "exchange=" << row.exchange << " validate=" << row.validate
              << " balance=" << row.balance << " position=" << row.position
              << " funding=" << row.funding << " close_report=" << row.close_report
              << " open=" << row.open << " close=" << row.close << " cancel=" << row.cancel
              << " status=" << row.status << " leverage_sync=" << row.leverage_sync
              << " margin_mode_sync=" << row.margin_mode_sync << '\n';
  }
  return 0;
}

std::string funding(ConnectorApp& app, const std::string& exchange, const std::string& symbol,
                    const Optional& lookback_minutes) {
  return app.get_funding(exchange, symbol, number(lookback_minutes.value_or("180")));
}

std::string close_report(ConnectorApp& app, const std::string& exchange, const std::string& symbol,
                         const Optional& order_id) {
  return app.get_close_report(exchange, symbol, order_id.value_or(""));
}

std::string place_open(ConnectorApp& app, const std::string& exchange, const std::string& symbol,
                       const std::string& side, const std::string& quantity,
                       const std::string& price, const std::string& leverage) {
  return app.place_open(exchange, symbol, side, quantity, price, number(leverage));
}

// What the function of a command gives back: the exit status, or the JSON to print.
int finish(int exit_status) { return exit_status; }
int finish(const std::string& json) {
  std::cout << json << '\n';
  return 0;
}

// Calls `function` with the arguments in their order, as many as it takes.
template <auto function, typename... Texts>
int run(ConnectorApp& app, Arguments args) {
  const auto call = [&]<std::size_t... index>(std::index_sequence<index...>) {
    return std::invoke(function, app, (index < args.size() ? Texts(args[index]) : Texts())...);
  };
  return finish(call(std::index_sequence_for<Texts...>()));
}

// A function of a command, and how many texts it takes.
struct Handler {
  int (*run)(ConnectorApp& app, Arguments args);
  std::ptrdiff_t needed;
  std::ptrdiff_t optional;
};

template <auto function, typename... Texts>
constexpr Handler handler_taking() {
  constexpr std::ptrdiff_t optional = (0 + ... + std::is_same_v<Texts, Optional>);
  return {run<function, Texts...>, static_cast<std::ptrdiff_t>(sizeof...(Texts)) - optional,
          optional};
}
template <auto function, typename Result, typename... Texts>
constexpr Handler handler_of(Result (*)(ConnectorApp&, Texts...)) {
  return handler_taking<function, std::remove_cvref_t<Texts>...>();
}
template <auto function, typename... Texts>
constexpr Handler handler_of(std::string (ConnectorApp::*)(Texts...)) {
  return handler_taking<function, std::remove_cvref_t<Texts>...>();
}
template <auto function, typename... Texts>
constexpr Handler handler_of(std::string (ConnectorApp::*)(Texts...) const) {
  return handler_taking<function, std::remove_cvref_t<Texts>...>();
}

// Of a function above, or of an operation of ConnectorApp.
template <auto function>
constexpr Handler call = handler_of<function>(function);

struct Command {
  std::string_view name;
  std::string_view usage;  // of its arguments: <needed>, [optional]
  Handler handler;

  // Compiles only when the usage shows as many texts as the function takes.
  consteval Command(std::string_view its_name, std::string_view its_usage, Handler its_handler)
      : name(its_name), usage(its_usage), handler(its_handler) {
    if (std::count(usage.begin(), usage.end(), '<') != handler.needed ||
        std::count(usage.begin(), usage.end(), '[') != handler.optional) {
      throw "the usage and the function differ";
    }
  }
};

constexpr auto commands = std::to_array<Command>({
    {"status", "", call<status>},
    {"validate", "<exchange> <api_key> <api_secret> [passphrase]", call<validate>},
    {"load-credentials", "<exchange>", call<load_credentials>},
    {"delete-credentials", "<exchange>", call<delete_credentials>},
    {"set-wallet", "<public_evm_address>", call<set_wallet>},
    {"bind-wallet", "", call<&ConnectorApp::bind_wallet_to_server>},
    {"bind-status", "", call<&ConnectorApp::binding_status>},
    {"claim-token", "<token>", call<&ConnectorApp::claim_bind_token>},
    {"disconnect-binding", "", call<&ConnectorApp::disconnect_binding>},
    {"capabilities", "", call<capabilities>},
    {"balance", "<exchange>", call<&ConnectorApp::get_balance>},
    {"get-position", "<exchange> <symbol>", call<&ConnectorApp::get_position>},
    {"order-status", "<exchange> <symbol> <order_id>", call<&ConnectorApp::get_order_status>},
    {"cancel-order", "<exchange> <symbol> <order_id>", call<&ConnectorApp::cancel_order>},
    {"funding", "<exchange> <symbol> [lookback_minutes]", call<funding>},
    {"close-report", "<exchange> <symbol> [order_id]", call<close_report>},
    {"place-open", "<exchange> <symbol> <side> <quantity> <price> <leverage>", call<place_open>},
    {"place-close", "<exchange> <symbol> <side> <quantity> <price>",
     call<&ConnectorApp::place_close>},
    {"update-check", "", call<&ConnectorApp::update_check>},
    {"update-download", "", call<&ConnectorApp::update_download>},
    {"update-apply", "", call<&ConnectorApp::update_apply>},
    {"server-health", "", call<&ConnectorApp::server_health>},
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

int CommandDispatcher::run_cli(int argc, char** argv) {
  if (argc < 2) {
    return fail_with_general_usage();
  }
  const std::string name = argv[1];
  const std::vector<std::string> args(argv + 2, argv + argc);
  for (const Command& command : commands) {
    if (command.name != name) {
      continue;
    }
    if (std::ssize(args) < command.handler.needed) {
      std::cerr << "usage: morvane-connector " << name << ' ' << command.usage << '\n';
      return 1;
    }
    std::cout << std::boolalpha;
    return command.handler.run(app_, args);
  }
  std::cerr << "unknown command: " << name << '\n';
  return 1;
}

}  // namespace morvane::connector
