#include <gtest/gtest.h>

#include <filesystem>
#include <regex>
#include <string>
#include <utility>
#include <vector>

#include "state/config_store.hpp"
#include "state/device_identity.hpp"
#include "state/pairing_store.hpp"
#include "support.hpp"

// The identity and pairing files as people, editors and earlier runs leave them.

namespace morvane::connector {
namespace {

namespace fs = std::filesystem;
using test::file_text;
using test::TempFolder;
using test::write_file;

std::string text_of(const DeviceIdentity& identity) {
  return identity.device_id + "|" + identity.connector_instance_id + "|" + identity.device_label +
         "|" + identity.platform + "|" + identity.owner_wallet + "|" +
         (identity.paired ? "paired" : "not paired");
}

std::string text_of(const PairingState& state) {
  return state.owner_wallet_address + "|" + state.pairing_status + "|" + state.server_account_ref +
         "|" + state.latest_bind_token + "|" + state.latest_claimed_connector_id + "|" +
         (state.platform_terms_accepted ? "accepted" : "not accepted") + "|" +
         (state.wallet_approval_confirmed ? "confirmed" : "not confirmed");
}

TEST(DeviceIdentityFile, the_first_run_writes_six_lines_with_fresh_ids) {
  const TempFolder root;
  const std::string folder = root / "not/yet/there";
  const DeviceIdentity identity = DeviceIdentityStore(folder).load_or_create();
  EXPECT_TRUE(std::regex_match(
      file_text(folder + "/device_identity.env"),
      std::regex("device_id=device:macos:[0-9a-f]{12}\nconnector_instance_id=connector:[0-9a-f]{16}"
                 "\ndevice_label=Morvane Connector \\(macOS\\)\nplatform=macos\nowner_wallet=\n"
                 "paired=0\n")))
      << file_text(folder + "/device_identity.env");
  EXPECT_NE(text_of(identity), text_of(DeviceIdentityStore(root / "other").load_or_create()));
}

TEST(DeviceIdentityFile, the_second_run_reads_the_same_and_rewrites_it_byte_for_byte) {
  const TempFolder root;
  const DeviceIdentity first = DeviceIdentityStore(root.path()).load_or_create();
  const std::string written = file_text(root / "device_identity.env");
  EXPECT_EQ(text_of(DeviceIdentityStore(root.path()).load_or_create()), text_of(first));
  EXPECT_EQ(file_text(root / "device_identity.env"), written);
}

struct IdentityRow {
  const char* name;
  std::string file;
  std::string read;
};

TEST(DeviceIdentityFile, is_read_line_by_line_without_trimming) {
  const std::vector<IdentityRow> rows = {
      {"a lone id leaves the rest empty", "device_id=d\n", "d|||||not paired"},
      {"no final newline", "device_id=d\npaired=1", "d|||||paired"},
      {"any order", "paired=1\nplatform=p\ndevice_id=d\n", "d|||p||paired"},
      {"carriage returns stay", "device_id=d\r\nplatform=p\r\npaired=1\r\n",
       "d\r|||p\r||not paired"},
      {"the last of two counts", "device_id=a\ndevice_id=d\npaired=1\npaired=0\n",
       "d|||||not paired"},
      {"a later = belongs to the value", "device_id=d=e==\nowner_wallet==\n",
       "d=e==||||=|not paired"},
      {"blanks are no part of a key", " device_id=x\ndevice_id =y\ndevice_id= d \n",
       " d |||||not paired"},
      {"keys have their case", "device_id=d\nDEVICE_ID=x\nPaired=1\n", "d|||||not paired"},
      {"unknown keys and other lines",
       "# x\n\n=\n=v\ndevice_id\nother=1\ndevice_id=d\ndevice_ids=x\n", "d|||||not paired"},
      {"paired=true", "device_id=d\npaired=true\n", "d|||||not paired"},
      {"paired=01", "device_id=d\npaired=01\n", "d|||||not paired"},
      {"paired=", "device_id=d\npaired=1\npaired=\n", "d|||||not paired"},
  };
  for (const IdentityRow& row : rows) {
    const TempFolder root;
    write_file(root / "device_identity.env", row.file);
    EXPECT_EQ(text_of(DeviceIdentityStore(root.path()).load_or_create()), row.read) << row.name;
  }
}

TEST(DeviceIdentityFile, without_a_device_id_everything_is_new) {
  const std::string rest =
      "connector_instance_id=connector:old\ndevice_label=old\nplatform=old\nowner_wallet=0xold\n"
      "paired=1\n";
  for (const std::string& file : {std::string(), std::string("\n"), rest, "device_id=\n" + rest,
                                  "device_id=d\n" + rest + "device_id=\n"}) {
    const TempFolder root;
    write_file(root / "device_identity.env", file);
    const DeviceIdentity identity = DeviceIdentityStore(root.path()).load_or_create();
    EXPECT_EQ(identity.device_id.rfind("device:macos:", 0), 0U) << file;
    EXPECT_EQ(text_of(identity).find("old"), std::string::npos) << file;
    EXPECT_FALSE(identity.paired) << file;
    EXPECT_EQ(file_text(root / "device_identity.env").find("old"), std::string::npos) << file;
  }
}

TEST(DeviceIdentityFile, that_cannot_be_written_gives_a_new_identity_every_time) {
  const TempFolder root;
  fs::create_directories(root / "device_identity.env/in the way");
  DeviceIdentityStore store(root.path());
  EXPECT_FALSE(store.save({}));
  const DeviceIdentity first = store.load_or_create();
  EXPECT_EQ(first.platform, "macos");
  EXPECT_NE(store.load_or_create().device_id, first.device_id);
}

TEST(PairingFile, a_missing_or_unreadable_one_reads_as_unpaired) {
  const TempFolder root;
  EXPECT_EQ(text_of(PairingStore(root.path()).load()), "|unpaired||||not accepted|not confirmed");
  EXPECT_EQ(file_text(root / "pairing.env"), "(no file)");
  fs::create_directory(root / "pairing.env");
  EXPECT_EQ(text_of(PairingStore(root.path()).load()), "|unpaired||||not accepted|not confirmed");
}

TEST(PairingFile, holds_seven_lines_in_a_fixed_order_that_read_back) {
  const TempFolder root;
  const PairingStore store(root.path());
  const PairingState state{"0xAbC=1", "bound", "ref", "token", "device:macos:1", true, true};
  ASSERT_TRUE(store.save(state));
  EXPECT_EQ(file_text(root / "pairing.env"),
            "owner_wallet_address=0xAbC=1\npairing_status=bound\nserver_account_ref=ref\n"
            "latest_bind_token=token\nlatest_claimed_connector_id=device:macos:1\n"
            "platform_terms_accepted=1\nwallet_approval_confirmed=1\n");
  EXPECT_EQ(text_of(store.load()), text_of(state));
  ASSERT_TRUE(store.save({}));
  EXPECT_EQ(file_text(root / "pairing.env"),
            "owner_wallet_address=\npairing_status=\nserver_account_ref=\nlatest_bind_token=\n"
            "latest_claimed_connector_id=\nplatform_terms_accepted=0\n"
            "wallet_approval_confirmed=0\n");
}

TEST(PairingFile, a_flag_is_true_for_1_alone) {
  for (const char* value : {"yes", "true", "1\r", " 1", "11", "", "0"}) {
    const TempFolder root;
    write_file(root / "pairing.env",
               std::string("wallet_approval_confirmed=") + value + "\nplatform_terms_accepted=1\n");
    EXPECT_EQ(text_of(PairingStore(root.path()).load()), "|unpaired||||accepted|not confirmed")
        << value;
  }
}

TEST(PairingFile, a_new_wallet_keeps_everything_else) {
  const std::vector<std::pair<std::string, std::string>> rows = {
      {"", "0xabc|unpaired||||not accepted|not confirmed"},
      {"pairing_status=\n", "0xabc|wallet_set||||not accepted|not confirmed"},
      {"pairing_status=unpaired\n", "0xabc|unpaired||||not accepted|not confirmed"},
      {"pairing_status=pending_signature\nlatest_bind_token=t\n",
       "0xabc|pending_signature||t||not accepted|not confirmed"},
      {"owner_wallet_address=0xold\npairing_status=bound\nserver_account_ref=r\n"
       "latest_claimed_connector_id=c\nplatform_terms_accepted=1\nwallet_approval_confirmed=1\n",
       "0xabc|bound|r||c|accepted|confirmed"},
  };
  for (const auto& [file, read] : rows) {
    const TempFolder root;
    write_file(root / "pairing.env", file);
    const PairingStore store(root.path());
    EXPECT_TRUE(store.set_owner_wallet("0xabc")) << file;
    EXPECT_EQ(text_of(store.load()), read) << file;
  }
}

TEST(PairingFile, any_wallet_text_is_taken) {
  const TempFolder root;
  const PairingStore store(root.path());
  for (const char* address : {"", " 0xabc ", "not a wallet", "a=b"}) {
    EXPECT_TRUE(store.set_owner_wallet(address));
    EXPECT_EQ(store.load().owner_wallet_address, address);
  }
}

TEST(PairingFile, that_cannot_be_written_is_reported) {
  const TempFolder root;
  const PairingStore in_the_way(root.path());
  fs::create_directory(root / "pairing.env");
  EXPECT_FALSE(in_the_way.save({}));
  EXPECT_FALSE(in_the_way.set_owner_wallet("0xabc"));
  const PairingStore without_folder(root / "gone");
  fs::remove(root / "gone");
  EXPECT_FALSE(without_folder.save({}));
}

TEST(ApplicationRoot, is_made_with_its_parents_and_handed_out_as_passed) {
  const TempFolder folder;
  const std::string root = folder / "a/./b/";
  EXPECT_EQ(ConfigStore(root).app_root(), root);
  EXPECT_TRUE(fs::is_directory(folder / "a/b"));
  EXPECT_EQ(ConfigStore(root).app_root(), root) << "an existing one is fine";
}

TEST(ApplicationRoot, a_file_in_its_place_throws) {
  const TempFolder folder;
  write_file(folder / "file", "");
  for (const std::string& root : {folder / "file", folder / "file/below"}) {
    EXPECT_THROW(ConfigStore{root}, fs::filesystem_error) << root;
    EXPECT_THROW(PairingStore{root}, fs::filesystem_error) << root;
    EXPECT_THROW(DeviceIdentityStore(root).load_or_create(), fs::filesystem_error) << root;
    EXPECT_THROW(DeviceIdentityStore(root).save({}), fs::filesystem_error) << root;
  }
}

}  // namespace
}  // namespace morvane::connector
