#include "state/key_vault.hpp"

#include <algorithm>
#include <filesystem>
#include <sstream>
#include <system_error>
#include <utility>

#include "state/state_files.hpp"

namespace morvane::connector {
namespace {

namespace fs = std::filesystem;

// The id as a file name and keychain account can hold it.
std::string sanitize_exchange(std::string exchange) {
  std::replace_if(
      exchange.begin(), exchange.end(),
      [](char byte) { return byte == '/' || byte == '\\' || byte == ' '; }, '_');
  return exchange;
}

}  // namespace

KeyVault::KeyVault(std::string root, Literal security_tool)
    : root_(std::move(root)), security_tool_(security_tool) {
  own_folder(root_);
}

bool KeyVault::save(const StoredCredential& credential) {
  const std::string text = to_credential_text(credential);
  // The keychain's copy has no line feed after its last line.
  const std::string payload = text.substr(0, text.size() - 1);
  const CommandOutput result = run_command(
      security_line("add-generic-password -U", credential.exchange) + " -w " + shell_word(payload));
  if (result.exit_code == 0) {
    index().append_line(credential.exchange);
    return true;
  }
  return StateFile(fallback_path(credential.exchange)).replace(text) == Kept::whole;
}

std::optional<StoredCredential> KeyVault::load(const std::string& exchange) const {
  const CommandOutput result =
      run_command(security_line("find-generic-password", exchange) + " -w");
  if (result.exit_code == 0) {
    // Meant: the keychain's answer counts even with empty fields; the file is not asked then.
    StoredCredential credential = parse_credential_text(decode_keychain_output(result.output));
    if (credential.exchange.empty()) {
      credential.exchange = exchange;
    }
    return credential;
  }
  const std::optional<std::string> text = StateFile(fallback_path(exchange)).read();
  if (!text) {
    return std::nullopt;
  }
  return parse_credential_text(*text);
}

bool KeyVault::remove(const std::string& exchange) {
  // Meant: the keychain item and its index line stay, so a key saved there is still listed and
  // loadable.
  const std::string path = fallback_path(exchange);
  std::error_code failed;
  fs::remove(path, failed);
  if (!failed || failed == std::errc::filename_too_long) {
    return true;
  }
  // A vault that may not be searched is no proof of absence.
  return fs::symlink_status(path, failed).type() == fs::file_type::not_found;
}

std::vector<std::string> KeyVault::list_exchanges() const {
  std::vector<std::string> exchanges;
  std::istringstream lines(index().read().value_or(""));
  for (std::string line; std::getline(lines, line);) {
    if (!line.empty()) {
      exchanges.push_back(line);
    }
  }
  if (!exchanges.empty()) {
    return exchanges;
  }
  for (const fs::path& file : files_in(root_)) {
    if (file.extension() == state_files::fallback_extension) {
      exchanges.push_back(file.stem().string());
    }
  }
  return exchanges;
}

std::string KeyVault::backend_name() const { return "macos_keychain_with_file_fallback"; }

std::string KeyVault::fallback_path(const std::string& exchange) const {
  return root_ + "/" + sanitize_exchange(exchange) + state_files::fallback_extension;
}

StateFile KeyVault::index() const { return StateFile(root_ + state_files::vault_index); }

ShellLine KeyVault::security_line(Literal subcommand, const std::string& exchange) const {
  const std::string account = sanitize_exchange(exchange);
  return ShellLine(security_tool_) + " " + subcommand + " -s " +
         shell_word("morvane.connector." + account) + " -a " + shell_word(account);
}

}  // namespace morvane::connector
