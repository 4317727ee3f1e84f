#include "state/key_vault.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "support.hpp"

namespace morvane::connector {
namespace {

namespace fs = std::filesystem;
using test::file_text;
using test::mode_of;
using test::TempFolder;
using test::Tools;
using test::write_file;
using Words = std::vector<std::string>;

// A keychain that keeps its items in files, and prints an item as the real tool prints a password
// with line feeds in it: as hex.
const char* const keychain = R"(
case "$1" in
  add-generic-password) printf %s "$8" > "$here/$6.item" ;;
  find-generic-password)
    test -f "$here/$5.item" || { echo 'The specified item could not be found.' >&2; exit 44; }
    od -An -v -tx1 "$here/$5.item" | tr -d ' \n'
    echo ;;
esac)";

const StoredCredential bybit_key{"bybit", "key=1", "c2VjcmV0==", "pass 'phrase'"};
const char* const bybit_text =
    "exchange=bybit\napi_key=key=1\napi_secret=c2VjcmV0==\npassphrase=pass 'phrase'";

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

  Tools tools_;
  TempFolder folder_;
  std::string root_ = folder_ / "vault";
  std::string index_ = root_ + "/vault_index.txt";
};

TEST_F(Vault, a_credential_saved_in_the_keychain_is_loaded_from_its_hex) {
  KeyVault vault = vault_with(keychain);
  EXPECT_EQ(text_of(vault.load("bybit")), "(none)");
  ASSERT_TRUE(vault.save(bybit_key));
  ASSERT_TRUE(vault.save({"okx", "caf\xc3\xa9", "\t$(x)\\", ""}));
  EXPECT_EQ(text_of(vault.load("bybit")), text_of(bybit_key));
  EXPECT_EQ(text_of(vault.load("okx")), "okx|caf\xc3\xa9|\t$(x)\\|");
  EXPECT_FALSE(fs::exists(root_ + "/bybit.vault"));
}

TEST_F(Vault, the_keychain_tool_gets_exactly_these_arguments) {
  KeyVault vault = vault_with(keychain);
  vault.save({"my exchange/x", "k", "s", ""});
  EXPECT_EQ(text_of(vault.load("my exchange/x")), "my exchange/x|k|s|");
  EXPECT_EQ(tools_.calls("security"),
            (std::vector<Words>{{"add-generic-password", "-U", "-s",
                                 "morvane.connector.my_exchange_x", "-a", "my_exchange_x", "-w",
                                 "exchange=my exchange/x\napi_key=k\napi_secret=s\n"
                                 "passphrase="},
                                {"find-generic-password", "-s", "morvane.connector.my_exchange_x",
                                 "-a", "my_exchange_x", "-w"}}));
  EXPECT_EQ(file_text(index_), "my exchange/x\n");
}

struct Answer {
  const char* name;
  std::string output;
  std::string read;
};

TEST_F(Vault, what_the_keychain_prints_is_text_or_its_hex) {
  const std::vector<Answer> rows = {
      {"text", std::string(bybit_text) + "\n", text_of(bybit_key)},
      {"upper-case hex", "6170695F6B65793D6B\n", "bybit|k||"},
      {"lower-case hex of api_key=k", "6170695f6b65793d6b\n", "bybit|k||"},
      {"hex without a line end", "6170695f6b65793d6b", "bybit|k||"},
      {"hex that decodes to junk", "abcdef00\n", "bybit|||"},
      {"an odd number of digits", "6170695f6b65793d6b6\n", "bybit|||"},
      {"hex and something else", "6170695f6b65793d6b x\n", "bybit|||"},
      {"0x before it", "0x6170695f6b65793d6b\n", "bybit|||"},
      {"nothing", "", "bybit|||"},
      {"an empty line", "\n", "bybit|||"},
      {"junk", "no such thing\n", "bybit|||"},
      {"another exchange's item", "exchange=okx\napi_key=k\n", "okx|k||"},
      {"doubled keys", "api_key=a\napi_key=k\n", "bybit|k||"},
      {"unknown keys and carriage returns", "x=1\napi_key=k\r\n", "bybit|k\r||"},
  };
  const KeyVault vault = vault_with("cat $here/answer");
  write_file(root_ + "/bybit.vault", "exchange=bybit\napi_key=from the file\n");
  for (const Answer& row : rows) {
    write_file(tools_.folder() / "answer", row.output);
    EXPECT_EQ(text_of(vault.load("bybit")), row.read) << row.name;
  }
}

TEST_F(Vault, when_the_keychain_refuses_the_file_is_used) {
  for (const char* refusal :
       {"exit 44", "exit 45", "echo exchange=keychain; exit 1", "kill -9 $$"}) {
    fs::remove_all(root_);
    KeyVault vault = vault_with(refusal);
    EXPECT_EQ(text_of(vault.load("bybit")), "(none)") << refusal;
    ASSERT_TRUE(vault.save(bybit_key)) << refusal;
    EXPECT_EQ(file_text(root_ + "/bybit.vault"), std::string(bybit_text) + "\n") << refusal;
    EXPECT_EQ(text_of(vault.load("bybit")), text_of(bybit_key)) << refusal;
    EXPECT_EQ(file_text(index_), "(no file)") << refusal;
    EXPECT_EQ(vault.list_exchanges(), Words{"bybit"}) << refusal;
  }
}

TEST_F(Vault, without_the_keychain_tool_the_file_is_used_and_replaced) {
  KeyVault vault = vault_without_tool();
  ASSERT_TRUE(vault.save({"bybit", std::string(500, 'k'), "s", "p"}));
  ASSERT_TRUE(vault.save(bybit_key));
  EXPECT_EQ(file_text(root_ + "/bybit.vault"), std::string(bybit_text) + "\n");
  EXPECT_EQ(mode_of(root_ + "/bybit.vault"), 0600);
}

TEST_F(Vault, the_keychain_road_leaves_the_file_alone) {
  ASSERT_TRUE(vault_without_tool().save({"bybit", "old", "s", ""}));
  KeyVault vault = vault_with(keychain);
  ASSERT_TRUE(vault.save(bybit_key));
  EXPECT_EQ(file_text(root_ + "/bybit.vault"),
            "exchange=bybit\napi_key=old\napi_secret=s\npassphrase=\n");
  EXPECT_EQ(text_of(vault.load("bybit")), text_of(bybit_key));
}

TEST_F(Vault, a_fallback_file_is_read_as_it_stands) {
  const std::vector<std::pair<std::string, std::string>> rows = {
      {"", "|||"},
      {"junk\n", "|||"},
      {"api_key=k", "|k||"},
      {"exchange=other\napi_secret==s=\npassphrase= p \n", "other||=s=| p "}};
  const KeyVault vault = vault_without_tool();
  for (const auto& [text, read] : rows) {
    write_file(root_ + "/bybit.vault", text);
    EXPECT_EQ(text_of(vault.load("bybit")), read) << text;
  }
}

TEST_F(Vault, a_folder_in_the_place_of_a_file_is_no_credential) {
  KeyVault vault = vault_without_tool();
  fs::create_directories(root_ + "/bybit.vault/inside");
  EXPECT_FALSE(vault.save(bybit_key));
  EXPECT_EQ(text_of(vault.load("bybit")), "(none)");
  EXPECT_FALSE(vault.remove("bybit"));
  EXPECT_TRUE(vault.list_exchanges().empty());
}

TEST_F(Vault, remove_takes_the_file_and_leaves_the_keychain) {
  ASSERT_TRUE(vault_without_tool().save(bybit_key));
  KeyVault vault = vault_with(keychain);
  ASSERT_TRUE(vault.save(bybit_key));
  EXPECT_TRUE(vault.remove("bybit"));
  EXPECT_FALSE(fs::exists(root_ + "/bybit.vault"));
  EXPECT_TRUE(vault.remove("bybit")) << "none is left";
  EXPECT_TRUE(vault.remove("never stored"));
  EXPECT_EQ(text_of(vault.load("bybit")), text_of(bybit_key));
  EXPECT_EQ(vault.list_exchanges(), Words{"bybit"});
}

TEST_F(Vault, the_index_lists_every_save_in_order) {
  KeyVault vault = vault_with(keychain);
  for (const char* exchange : {"okx", "bybit", "okx"}) {
    ASSERT_TRUE(vault.save({exchange, "k", "s", ""}));
  }
  EXPECT_EQ(file_text(index_), "okx\nbybit\nokx\n");
  EXPECT_EQ(vault.list_exchanges(), (Words{"okx", "bybit", "okx"}));
  EXPECT_EQ(mode_of(index_), 0600);
}

TEST_F(Vault, an_index_without_entries_gives_way_to_the_files) {
  const KeyVault vault = vault_without_tool();
  EXPECT_TRUE(vault.list_exchanges().empty());
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
  write_file(index_, "\nokx\n\n gate\nlast");
  EXPECT_EQ(vault.list_exchanges(), (Words{"okx", " gate", "last"}));
  fs::remove_all(root_);
  EXPECT_TRUE(vault.list_exchanges().empty());
}

TEST_F(Vault, no_exchange_name_leads_out_of_the_folder) {
  KeyVault vault = vault_without_tool();
  const std::vector<std::pair<std::string, std::string>> rows = {
      {"my exchange/x", "my_exchange_x.vault"},
      {"..", "...vault"},
      {"../up", ".._up.vault"},
      {"a\\b", "a_b.vault"},
      {"Bybit", "Bybit.vault"},
      {"", ".vault"}};
  for (const auto& [exchange, file] : rows) {
    ASSERT_TRUE(vault.save({exchange, "k", "s", ""})) << exchange;
    EXPECT_EQ(file_text(root_ + "/" + file),
              "exchange=" + exchange + "\napi_key=k\napi_secret=s\npassphrase=\n");
    EXPECT_EQ(text_of(vault.load(exchange)), exchange + "|k|s|");
  }
  EXPECT_EQ(std::distance(fs::directory_iterator(folder_.path()), {}), 1);
}

TEST_F(Vault, a_wider_folder_and_its_files_are_narrowed) {
  fs::create_directories(root_);
  ::chmod(root_.c_str(), 0755);
  for (const std::string& file : {index_, root_ + "/bybit.vault", root_ + "/stray copy"}) {
    write_file(file, "text");
    ::chmod(file.c_str(), 0644);
  }
  const KeyVault vault = vault_without_tool();
  EXPECT_EQ(mode_of(root_), 0700);
  for (const std::string& file : {index_, root_ + "/bybit.vault", root_ + "/stray copy"}) {
    EXPECT_EQ(mode_of(file), 0600) << file;
    EXPECT_EQ(file_text(file), "text") << file;
  }
}

TEST_F(Vault, files_are_their_owners_under_any_umask) {
  KeyVault vault = vault_with("case $1 in add*) test \"$6\" = okx ;; *) exit 44 ;; esac");
  for (const mode_t mask : {mode_t{0}, mode_t{022}, mode_t{0777}}) {
    fs::remove_all(root_);
    {
      const test::Umask umask(mask);
      const KeyVault fresh = vault_without_tool();
      EXPECT_EQ(mode_of(root_), 0700) << mask;
      ASSERT_TRUE(vault.save({"okx", "k", "s", ""}));
      ASSERT_TRUE(vault.save({"bybit", "k", "s", ""}));
    }
    EXPECT_EQ(mode_of(index_), 0600) << mask;
    EXPECT_EQ(mode_of(root_ + "/bybit.vault"), 0600) << mask;
  }
}

TEST_F(Vault, an_index_that_cannot_be_written_does_not_fail_the_save) {
  KeyVault vault = vault_with(keychain);
  fs::create_directories(index_ + "/inside");
  EXPECT_TRUE(vault.save(bybit_key));
  EXPECT_EQ(text_of(vault.load("bybit")), text_of(bybit_key));
}

TEST_F(Vault, a_file_in_the_folders_place_throws) {
  write_file(root_, "");
  EXPECT_THROW(vault_without_tool(), fs::filesystem_error);
}

TEST_F(Vault, names_its_backend) {
  EXPECT_EQ(vault_without_tool().backend_name(), "macos_keychain_with_file_fallback");
}

}  // namespace
}  // namespace morvane::connector
