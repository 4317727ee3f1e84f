#pragma once

#include <string>

#include "state/private_file.hpp"

namespace morvane::connector {

// What the relay knows this installation by.
struct DeviceIdentity {
  std::string device_id;              // "device:macos:" and 12 hex digits
  std::string connector_instance_id;  // "connector:" and 16 hex digits; sent nowhere
  std::string device_label;
  std::string platform;
  std::string owner_wallet;  // the owner's public address, empty when none
  // Set when the relay reports the wallet bound, and by bind-wallet whatever the relay says.
  bool paired = false;
};

// Keeps the identity in device_identity.env under the application root.
class DeviceIdentityStore {
 public:
  explicit DeviceIdentityStore(const std::string& root);  // which exists

  // The stored identity, or a fresh random one where the file has no device id. Keeps it; where
  // that fails (a read-only root, a file that cannot be read) every run may have a new identity.
  // Throws when there is no random device.
  DeviceIdentity load_or_create();

  // Replaces the file; false when it cannot be opened for writing, or could not be read.
  bool save(const DeviceIdentity& identity) const;

 private:
  StateFile file_;
};

}  // namespace morvane::connector
