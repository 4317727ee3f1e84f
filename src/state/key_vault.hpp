#pragma once

#include <optional>
#include <string>
#include <vector>

#include "net/shell.hpp"
#include "state/credential_text.hpp"
#include "state/private_file.hpp"

namespace morvane::connector {

// Keeps one credential per exchange: in the login keychain through the macOS security tool, and
// where that tool refuses, in a plain-text file of the owner's alone in the vault folder.
class KeyVault {
 public:
  // Creates the folder `root` (throws std::filesystem::filesystem_error on failure) and takes
  // group's and others' rights from it and from every file in it. `security_tool` is the keychain
  // tool (security(1)) as a literal of a command line: a path without blanks.
  explicit KeyVault(std::string root, Literal security_tool = "/usr/bin/security");

  // True when the keychain took the credential, or else when all of it is in the fallback file;
  // otherwise that file is as it was.
  bool save(const StoredCredential& credential);

  // The credential of `exchange`, keychain first; nothing when neither place has one. A damaged
  // text gives empty fields, not a failure.
  std::optional<StoredCredential> load(const std::string& exchange) const;

  // Deletes the fallback file; true when none is left. The keychain item and the index stay.
  bool remove(const std::string& exchange);

  // The ids saved to the keychain, in order and with repetitions; when there are none, those of
  // the fallback files (with the characters that a file name cannot hold replaced).
  std::vector<std::string> list_exchanges() const;

  std::string backend_name() const;

 private:
  std::string fallback_path(const std::string& exchange) const;
  StateFile index() const;
  // The tool's command line up to "-a <account>" for one of its subcommands.
  ShellLine security_line(Literal subcommand, const std::string& exchange) const;

  std::string root_;
  Literal security_tool_;
};

}  // namespace morvane::connector
