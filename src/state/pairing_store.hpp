#pragma once

#include <string>

#include "state/private_file.hpp"
#include "state/state_files.hpp"

namespace morvane::connector {

// The words of PairingState::pairing_status.
namespace pairing_status {

inline constexpr const char* unpaired = "unpaired";
inline constexpr const char* wallet_set = "wallet_set";
inline constexpr const char* pending_signature = "pending_signature";
inline constexpr const char* bound = "bound";

}  // namespace pairing_status

// How far this connector has got in binding itself to the owner's platform account.
struct PairingState {
  std::string owner_wallet_address;  // as typed, never checked
  std::string pairing_status;
  std::string server_account_ref;  // kept and written; nothing sets it
  std::string latest_bind_token;
  std::string latest_claimed_connector_id;
  // Both are set when the relay reports the binding authorized, and by bind-wallet whatever the
  // relay says.
  bool platform_terms_accepted = false;
  bool wallet_approval_confirmed = false;
};

// Keeps the pairing state in pairing.env under the application root.
class PairingStore {
 public:
  // `root` exists.
  explicit PairingStore(const std::string& root) : file_(root + state_files::pairing) {}

  // The stored state; without a readable file "unpaired" and everything else empty.
  PairingState load() const;

  // Replaces the file; false when it cannot be opened for writing, or could not be read.
  bool save(const PairingState& state) const;

  // Records `address` in the stored state and keeps all else, a "bound" status included.
  bool set_owner_wallet(const std::string& address) const;

 private:
  StateFile file_;
};

}  // namespace morvane::connector
