#pragma once

#include "app/connector_app.hpp"

namespace morvane::connector {

// Runs the one command of a command line.
class CommandDispatcher {
 public:
  // `app` is borrowed, bootstrapped, and must outlive the dispatcher.
  explicit CommandDispatcher(ConnectorApp& app) : app_(app) {}

  // Prints the command's result on standard output and returns the exit status: 0 when it ran (a
  // JSON result tells success by its own "status"), 2 when validate, set-wallet, load-credentials
  // or delete-credentials did not do what they are for, and 1, with a message on standard error,
  // for no command, an unknown one or too few arguments. A number argument that is no number
  // throws std::invalid_argument or std::out_of_range before anything is done.
  int run_cli(int argc, char** argv);

 private:
  ConnectorApp& app_;
};

}  // namespace morvane::connector
