#include "state/pairing_store.hpp"

#include "state/record_text.hpp"

namespace morvane::connector {
namespace {

constexpr RecordFields<PairingState, 7> pairing_fields = {{
    {"owner_wallet_address", &PairingState::owner_wallet_address},
    {"pairing_status", &PairingState::pairing_status},
    {"server_account_ref", &PairingState::server_account_ref},
    {"latest_bind_token", &PairingState::latest_bind_token},
    {"latest_claimed_connector_id", &PairingState::latest_claimed_connector_id},
    {"platform_terms_accepted", &PairingState::platform_terms_accepted},
    {"wallet_approval_confirmed", &PairingState::wallet_approval_confirmed},
}};

}  // namespace

PairingState PairingStore::load() const {
  PairingState state;
  state.pairing_status = pairing_status::unpaired;
  from_text(file_.read().value_or(""), pairing_fields, state);
  return state;
}

bool PairingStore::save(const PairingState& state) const {
  return file_.replace(to_text(state, pairing_fields)) != Kept::refused;
}

bool PairingStore::set_owner_wallet(const std::string& address) const {
  PairingState state = load();
  state.owner_wallet_address = address;
  // Meant: load() answers "unpaired" where there is no file, so that only an emptied status line
  // becomes "wallet_set".
  if (state.pairing_status.empty()) {
    state.pairing_status = pairing_status::wallet_set;
  }
  return save(state);
}

}  // namespace morvane::connector
