#include "state/device_identity.hpp"

#include <optional>
#include <random>

#include "state/record_text.hpp"
#include "state/state_files.hpp"

namespace morvane::connector {
namespace {

constexpr RecordFields<DeviceIdentity, 6> identity_fields = {{
    {"device_id", &DeviceIdentity::device_id},
    {"connector_instance_id", &DeviceIdentity::connector_instance_id},
    {"device_label", &DeviceIdentity::device_label},
    {"platform", &DeviceIdentity::platform},
    {"owner_wallet", &DeviceIdentity::owner_wallet},
    {"paired", &DeviceIdentity::paired},
}};

// `count` hex digits from one 32-bit seed: an identifier, not a secret.
std::string random_hex(std::size_t count) {
  std::random_device device("/dev/urandom");
  std::mt19937 engine(device());
  std::uniform_int_distribution<std::size_t> digit(0, 15);
  std::string hex;
  while (hex.size() < count) {
    hex += "0123456789abcdef"[digit(engine)];
  }
  return hex;
}

DeviceIdentity fresh_identity() {
  return {.device_id = "device:macos:" + random_hex(12),
          .connector_instance_id = "connector:" + random_hex(16),
          .device_label = "Morvane Connector (macOS)",
          .platform = "macos",
          .owner_wallet = "",
          .paired = false};
}

}  // namespace

DeviceIdentityStore::DeviceIdentityStore(const std::string& root)
    : file_(root + state_files::identity) {}

DeviceIdentity DeviceIdentityStore::load_or_create() {
  DeviceIdentity identity;
  std::optional<std::string> text = file_.read();
  if (!text) {
    identity = fresh_identity();
    file_.create(to_text(identity, identity_fields));
    // Another first run may have created it before.
    text = file_.read();
  }
  from_text(text.value_or(""), identity_fields, identity);
  // Meant: without its device id nothing else of the file is kept.
  if (identity.device_id.empty()) {
    identity = fresh_identity();
  }
  // Where nothing changes, nothing is written over what another run may have changed meanwhile.
  if (text != to_text(identity, identity_fields)) {
    save(identity);
  }
  return identity;
}

bool DeviceIdentityStore::save(const DeviceIdentity& identity) const {
  return file_.replace(to_text(identity, identity_fields)) != Kept::refused;
}

}  // namespace morvane::connector
