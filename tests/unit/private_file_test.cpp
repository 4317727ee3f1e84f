#include "state/private_file.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <ios>
#include <string>

#include "app/connector_app.hpp"
#include "support.hpp"

namespace morvane::connector {
namespace {

namespace fs = std::filesystem;
using test::file_text;
using test::mode_of;
using test::TempFolder;
using test::Umask;
using test::write_file;

class PrivateFile : public testing::TestWithParam<mode_t> {
 protected:
  // Before the umask, which would close it to its owner as well.
  TempFolder folder_;
  Umask umask_{GetParam()};
};

TEST_P(PrivateFile, a_new_file_is_its_owners_before_anything_is_written) {
  for (const auto mode : {std::ios::trunc, std::ios::app}) {
    fs::remove(folder_ / "file");
    std::ofstream file = open_private(folder_ / "file", mode);
    EXPECT_EQ(mode_of(folder_ / "file"), 0600);
    file << "text" << std::flush;
    EXPECT_EQ(file_text(folder_ / "file"), "text");
  }
}

TEST_P(PrivateFile, new_folders_are_their_owners) {
  create_private_directories(folder_ / "a/b/c");
  for (const char* name : {"a", "a/b", "a/b/c"}) {
    EXPECT_EQ(mode_of(folder_ / name), 0700) << name;
  }
}

TEST_P(PrivateFile, the_callers_umask_is_left_as_it_was) {
  create_private_directories(folder_ / "folder");
  EXPECT_EQ(Umask::current(), GetParam());
  open_private(folder_ / "file", std::ios::trunc);
  EXPECT_EQ(Umask::current(), GetParam());
  open_private(folder_ / "none/file", std::ios::trunc);
  EXPECT_EQ(Umask::current(), GetParam());
  write_file(folder_ / "file", "");
  EXPECT_THROW(create_private_directories(folder_ / "file"), fs::filesystem_error);
  EXPECT_EQ(Umask::current(), GetParam());
}

TEST_P(PrivateFile, a_whole_run_leaves_nothing_to_group_and_others) {
  const std::string root = folder_ / "root";
  {
    ConnectorApp app(root, "");
    app.bootstrap();
    ASSERT_TRUE(app.set_owner_wallet("0xabc"));
  }
  EXPECT_EQ(mode_of(root), 0700);
  int seen = 0;
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(root)) {
    EXPECT_EQ(mode_of(entry.path().string()), entry.is_directory() ? 0700 : 0600) << entry.path();
    ++seen;
  }
  EXPECT_EQ(seen, 4);  // identity, pairing, vault, updates
}

INSTANTIATE_TEST_SUITE_P(Umasks, PrivateFile,
                         testing::Values(mode_t{0}, mode_t{022}, mode_t{077}, mode_t{0777}));

TEST(PrivateFiles, wider_ones_are_narrowed_and_keep_their_text) {
  const TempFolder folder;
  for (const auto mode : {std::ios::trunc, std::ios::app}) {
    write_file(folder / "file", "old,");
    ::chmod((folder / "file").c_str(), 0666);
    open_private(folder / "file", mode) << "new";
    EXPECT_EQ(mode_of(folder / "file"), 0600);
    EXPECT_EQ(file_text(folder / "file"), mode == std::ios::app ? "old,new" : "new");
  }
}

TEST(PrivateFiles, what_the_owner_took_from_himself_stays_taken) {
  const TempFolder folder;
  write_file(folder / "file", "");
  ::chmod((folder / "file").c_str(), 0444);
  make_private(folder / "file");
  EXPECT_EQ(mode_of(folder / "file"), 0400);
}

TEST(PrivateFiles, what_is_no_file_is_not_opened) {
  const TempFolder folder;
  write_file(folder / "file", "");
  for (const std::string& path : {folder.path(), folder / "file/below", folder / "no/file"}) {
    for (const auto mode : {std::ios::trunc, std::ios::app}) {
      EXPECT_FALSE(open_private(path, mode).is_open()) << path;
    }
    EXPECT_FALSE(read_file(path).has_value()) << path;
  }
}

TEST(PrivateFiles, every_byte_of_a_file_is_read) {
  const TempFolder folder;
  for (const std::string& text : {std::string(), std::string("a\0b\r\n\x1a\xff", 8),
                                  std::string(100000, 'x'), std::string("\n")}) {
    write_file(folder / "file", text);
    EXPECT_EQ(read_file(folder / "file"), text);
  }
}

}  // namespace
}  // namespace morvane::connector
