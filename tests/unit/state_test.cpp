#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <optional>
#include <regex>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "app/connector_app.hpp"
#include "state/device_identity.hpp"
#include "state/key_vault.hpp"
#include "state/pairing_store.hpp"
#include "state/private_file.hpp"
#include "support.hpp"

// The files of the application root and the vault: who may read them, and what is read from them
// as people, editors, the keychain and earlier runs leave them.

namespace morvane::connector {
namespace {

namespace fs = std::filesystem;
using test::file_text;
using test::mode_of;
using test::TempFolder;
using test::write_file;
using Words = std::vector<std::string>;
using Rows = std::vector<std::pair<std::string, std::string>>;

TEST(PrivateFiles, wider_ones_are_narrowed) {
  const TempFolder folder;
  const std::string path = folder / "file";
  for (const int wide : {0777, 0666}) {
    write_file(path, "old\n");
    ::chmod(folder.path().c_str(), 0777);
    ::chmod(path.c_str(), static_cast<mode_t>(wide));
    own_folder(folder.path());
    EXPECT_EQ(mode_of(folder.path()), 0700);
    EXPECT_EQ(mode_of(path), wide & 0700);
    ::chmod(path.c_str(), 0666);
    append_line(path, "new");
    EXPECT_EQ(file_text(path), "old\nnew\n");
    EXPECT_EQ(mode_of(path), 0600);
    ::chmod(path.c_str(), 0666);
    EXPECT_TRUE(replace_file(path, "new\n"));
    EXPECT_EQ(file_text(path), "new\n");
    EXPECT_EQ(mode_of(path), 0600);
  }
  EXPECT_THROW(own_folder(path), fs::filesystem_error);
}

TEST(PrivateFiles, are_read_byte_for_byte_and_what_is_no_file_is_none) {
  const TempFolder folder;
  const std::string text = test::every_byte() + std::string(100000, '\0') + "\r\n";
  write_file(folder / "file", text);
  EXPECT_EQ(read_file(folder / "file"), text);
  ::mkfifo((folder / "pipe").c_str(), 0666);
  for (const std::string& path :
       {folder.path(), folder / "file/below", folder / "no/file", folder / "pipe"}) {
    EXPECT_FALSE(replace_file(path, "text\n")) << path;
    EXPECT_FALSE(read_file(path).has_value()) << path;
  }
}

TEST(PrivateFiles, a_reader_meets_the_old_lines_or_the_new_ones) {
  const TempFolder folder;
  const std::string path = folder / "file";
  const std::string one = "a=1\n";
  const std::string other = "b=1\nc=2\nd=3\n";
  write_file(path, one);
  std::thread writer([&] {
    for (int turn = 0; turn < 20000; ++turn) replace_file(path, turn % 2 == 0 ? other : one);
  });
  std::set<std::string> met;
  for (int turn = 0; turn < 20000; ++turn) {
    std::string text = read_file(path).value_or("(none)");
    met.insert(text.substr(0, text.find_last_not_of('\n') + 2));
  }
  writer.join();
  EXPECT_LE(met.size(), 2U) << testing::PrintToString(met);
  for (const std::string& text : met) EXPECT_TRUE(text == one || text == other) << text;
}

TEST(DeviceIdentityFile, the_first_run_writes_six_lines_and_the_second_leaves_them) {
  const TempFolder root;
  const DeviceIdentity first = DeviceIdentityStore(root / "a").load_or_create();
  const std::string written = file_text(root / "a/device_identity.env");
  const std::regex fresh(
      "device_id=device:macos:[0-9a-f]{12}\nconnector_instance_id=connector:[0-9a-f]{16}\n"
      "device_label=Morvane Connector \\(macOS\\)\nplatform=macos\nowner_wallet=\npaired=0\n");
  EXPECT_TRUE(std::regex_match(written, fresh)) << written;
  EXPECT_EQ(DeviceIdentityStore(root / "a").load_or_create().device_id, first.device_id);
  EXPECT_EQ(file_text(root / "a/device_identity.env"), written);
  EXPECT_NE(DeviceIdentityStore(root / "b").load_or_create().device_id, first.device_id);
}

TEST(DeviceIdentityFile, is_read_line_by_line_without_trimming) {
  const Rows rows = {{"paired=1\nplatform=p\ndevice_id=d", "d|p||1"},
                     {"device_id=d\r\nplatform=p\r\npaired=1\r\n", "d\r|p\r||0"},
                     {"device_id=a\ndevice_id=d\npaired=1\npaired=true\n", "d|||0"},
                     {"device_id=d=e==\nowner_wallet==\n", "d=e==||=|0"},
                     {" device_id=x\ndevice_id =y\ndevice_id= d \n", " d |||0"},
                     {"# x\n\n=\n=v\ndevice_id\nother=1\ndevice_id=d\ndevice_ids=x\n", "d|||0"},
                     {"device_id=d\npaired=1\npaired=\n", "d|||0"}};
  const TempFolder root;
  for (const auto& [text, read] : rows) {
    write_file(root / "device_identity.env", text);
    const DeviceIdentity got = DeviceIdentityStore(root.path()).load_or_create();
    const std::string flag = got.paired ? "|1" : "|0";
    EXPECT_EQ(got.device_id + "|" + got.platform + "|" + got.owner_wallet + flag, read) << text;
  }
}

TEST(PairingFile, holds_seven_lines_in_a_fixed_order_and_a_new_wallet_changes_one) {
  const TempFolder root;
  const PairingStore store(root.path());
  const std::string others =
      "server_account_ref=r\nlatest_bind_token=t\nlatest_claimed_connector_id=c\n"
      "platform_terms_accepted=1\nwallet_approval_confirmed=0\n";
  ASSERT_TRUE(store.save({"0xAbC=1", "bound", "r", "t", "c", true, false}));
  EXPECT_EQ(file_text(root / "pairing.env"),
            "owner_wallet_address=0xAbC=1\npairing_status=bound\n" + others);
  for (const auto& [text, status] : Rows{{"", "unpaired"},
                                         {"pairing_status=\n", "wallet_set"},
                                         {"pairing_status=unpaired\n", "unpaired"},
                                         {"owner_wallet_address=old\npairing_status=b\n", "b"}}) {
    write_file(root / "pairing.env", text + others);
    EXPECT_TRUE(store.set_owner_wallet(" not a wallet"));
    EXPECT_EQ(file_text(root / "pairing.env"),
              "owner_wallet_address= not a wallet\npairing_status=" + status + "\n" + others);
  }
}

// A keychain that keeps its items in files, and prints an item as the real tool prints a password
// with line feeds in it: as hex. It notes how it is called.
const char* const keychain = R"(
printf '<%s>' "$@" >> $here/calls
echo >> $here/calls
case "$1" in
  add-generic-password) printf %s "$8" > "$here/$6.item" ;;
  find-generic-password) test -f "$here/$5.item" || exit 44
    od -An -v -tx1 "$here/$5.item" | tr -d ' \n'
    echo ;;
esac)";

const StoredCredential bybit_key{"bybit", "key=1", "c2VjcmV0==", "it's"};
const char* const bybit_text =
    "exchange=bybit\napi_key=key=1\napi_secret=c2VjcmV0==\npassphrase=it's\n";

std::string text_of(const std::optional<StoredCredential>& credential) {
  return credential ? credential->exchange + "|" + credential->api_key + "|" +
                          credential->api_secret + "|" + credential->passphrase
                    : "(none)";
}

class Vault : public testing::Test {
 protected:
  // `body` is what the keychain tool does, as a shell script.
  KeyVault vault_with(const std::string& body) {
    tools_.add("security", body);
    return KeyVault(root_, tools_.folder() / "security");
  }
  KeyVault vault_without_tool() const { return KeyVault(root_, tools_.folder() / "missing"); }

  test::Tools tools_;
  TempFolder folder_;
  std::string root_ = folder_ / "vault";
  std::string index_ = root_ + "/vault_index.txt";
  std::string file_ = root_ + "/bybit.vault";
};

TEST_F(Vault, the_keychain_tool_gets_exactly_these_arguments_and_its_hex_is_read_back) {
  KeyVault vault = vault_with(keychain);
  const StoredCredential odd{"my exchange/x", "caf\xc3\xa9", "\t$(x)\\", ""};
  EXPECT_EQ(text_of(vault.load(odd.exchange)), "(none)");
  ASSERT_TRUE(vault.save(odd));
  EXPECT_EQ(text_of(vault.load(odd.exchange)), text_of(odd));
  const std::string item = "<-s><morvane.connector.my_exchange_x><-a><my_exchange_x><-w>";
  EXPECT_EQ(file_text(tools_.folder() / "calls"),
            "<find-generic-password>" + item + "\n<add-generic-password><-U>" + item +
                "<exchange=my exchange/x\napi_key=caf\xc3\xa9\napi_secret=\t$(x)\\\npassphrase=>\n"
                "<find-generic-password>" +
                item + "\n");
  EXPECT_EQ(file_text(index_), "my exchange/x\n");
}

TEST_F(Vault, what_the_keychain_prints_is_text_or_its_hex) {
  const Rows rows = {{bybit_text, text_of(bybit_key)},
                     {"6170695F6B65793D6B\n", "bybit|k||"},  // api_key=k
                     {"6170695f6b65793d6b", "bybit|k||"},
                     {"abcdef00\n", "bybit|||"},
                     {"6170695f6b65793d6b6\n", "bybit|||"},
                     {"6170695f6b65793d6b x\n", "bybit|||"},
                     {"", "bybit|||"},
                     {"exchange=okx\napi_key=k\n", "okx|k||"},
                     {"api_key=a\nx=1\napi_key=k\r\n", "bybit|k\r||"}};
  const KeyVault vault = vault_with("cat $here/answer");
  write_file(file_, "exchange=bybit\napi_key=from the file\n");
  for (const auto& [output, read] : rows) {
    write_file(tools_.folder() / "answer", output);
    EXPECT_EQ(text_of(vault.load("bybit")), read) << output;
  }
}

TEST_F(Vault, when_the_keychain_refuses_the_file_is_used_and_replaced) {
  for (const char* refusal : {"exit 44", "echo exchange=keychain; exit 1", "kill -9 $$"}) {
    fs::remove_all(root_);
    KeyVault vault = vault_with(refusal);
    EXPECT_EQ(text_of(vault.load("bybit")), "(none)") << refusal;
    EXPECT_TRUE(vault.save({"bybit", std::string(500, 'k'), "s", "p"}) && vault.save(bybit_key));
    EXPECT_EQ(mode_of(file_), 0600);
    EXPECT_EQ(file_text(file_), bybit_text) << refusal;
    EXPECT_EQ(text_of(vault.load("bybit")), text_of(bybit_key)) << refusal;
    EXPECT_EQ(file_text(index_), "(no file)") << refusal;
    EXPECT_EQ(vault.list_exchanges(), Words{"bybit"}) << refusal;
  }
}

TEST_F(Vault, the_keychain_and_the_file_do_not_touch_each_other) {
  ASSERT_TRUE(vault_without_tool().save({"bybit", "old", "s", ""}));
  KeyVault vault = vault_with(keychain);
  ASSERT_TRUE(vault.save(bybit_key));
  EXPECT_EQ(file_text(file_), "exchange=bybit\napi_key=old\napi_secret=s\npassphrase=\n");
  EXPECT_TRUE(vault.remove("bybit"));
  EXPECT_FALSE(fs::exists(file_));
  EXPECT_TRUE(vault.remove("bybit")) << "none is left";
  EXPECT_EQ(text_of(vault.load("bybit")), text_of(bybit_key));
  EXPECT_EQ(vault.list_exchanges(), Words{"bybit"});
}

TEST_F(Vault, the_index_lists_every_save_in_order_and_without_entries_the_files_count) {
  KeyVault vault = vault_with(keychain);
  for (const char* name : {"bybit.vault", "my_exchange_x.vault", "a.b.vault", ".vault", "x.VAULT",
                           "x.vault.bak", "vault", "y.txt"}) {
    write_file(root_ + "/" + name, "");
  }
  fs::create_directory(root_ + "/folder.vault");
  for (const char* index : {"", "\n\n"}) {
    write_file(index_, index);
    Words listed = vault.list_exchanges();
    std::sort(listed.begin(), listed.end());
    EXPECT_EQ(listed, (Words{"a.b", "bybit", "my_exchange_x"}));
  }
  for (const char* exchange : {"okx", " bybit", "okx"}) vault.save({exchange, "k", "s", ""});
  EXPECT_EQ(file_text(index_), "\n\nokx\n bybit\nokx\n");
  EXPECT_EQ(vault.list_exchanges(), (Words{"okx", " bybit", "okx"}));
}

}  // namespace
}  // namespace morvane::connector
