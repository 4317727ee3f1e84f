#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "app/command_dispatcher.hpp"
#include "app/connector_app.hpp"
#include "settings.hpp"
#include "state/private_file.hpp"

namespace {

namespace fs = std::filesystem;
using morvane::connector::CommandDispatcher;
using morvane::connector::ConnectorApp;

// For this process and every tool that it starts.
void keep_to_oneself() {
  ::umask(S_IRWXG | S_IRWXO);
  // A standard stream that the caller closed would give its number to a file of state.
  int descriptor = 0;
  do {
    descriptor = ::open("/dev/null", O_RDWR);
  } while (descriptor >= 0 && descriptor <= STDERR_FILENO);
  ::close(descriptor);
  // With these a shell prints each line that it runs, secrets and all.
  for (const char* traced : {"SHELLOPTS", "PS4", "BASH_XTRACEFD"}) {
    ::unsetenv(traced);
  }
  // A caller that ignores this signal would hide from us how a tool ended.
  std::signal(SIGCHLD, SIG_DFL);
  // A file that may not grow is a failure to tell, not the end of the run.
  std::signal(SIGXFSZ, SIG_IGN);
  // A core file would hold the credential. core(5) of Linux: a limit of 0 keeps no core from a
  // program that collects them, a limit of 1 does. No core fits into one byte.
  constexpr rlimit no_core{.rlim_cur = 1, .rlim_max = 1};
  ::setrlimit(RLIMIT_CORE, &no_core);
}

fs::path application_root() {
  // An empty HOME counts as set: it means the working folder.
  if (const char* home = std::getenv("HOME")) {
    return fs::path(home) / ".morvane-connector";
  }
  fs::path root = fs::temp_directory_path() / "morvane-connector";
  morvane::connector::create_among_strangers(root.string());
  return root;
}

}  // namespace

int main(int argc, char** argv) {
  keep_to_oneself();
  const char* relay_url = std::getenv("MORVANE_RELAY_URL");
  ConnectorApp app(application_root().string(),
                   relay_url != nullptr ? relay_url : morvane::connector::settings::default_relay);
  app.bootstrap();
  return CommandDispatcher(app).run_cli(argc, argv);
}
