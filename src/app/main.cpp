#include <cstdlib>
#include <filesystem>
#include <string>

#include "app/command_dispatcher.hpp"
#include "app/connector_app.hpp"
#include "hosts.hpp"

using morvane::connector::CommandDispatcher;
using morvane::connector::ConnectorApp;

int main(int argc, char** argv) {
  namespace fs = std::filesystem;
  // An empty variable counts as set: HOME then means the working folder, the relay URL none.
  const char* home = std::getenv("HOME");
  const char* relay_url = std::getenv("MORVANE_RELAY_URL");
  const fs::path root = home != nullptr ? fs::path(home) / ".morvane-connector"
                                        : fs::temp_directory_path() / "morvane-connector";
  ConnectorApp app(root.string(),
                   relay_url != nullptr ? relay_url : morvane::connector::hosts::default_relay);
  app.bootstrap();
  return CommandDispatcher(app).run_cli(argc, argv);
}
