#include "update/updater.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
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

const char* const manifest_url = "https://host/current/manifest.json";

std::string manifest_of(const std::string& version) {
  return R"({"version":")" + version + R"(","dmgUrl":"https://host/a b.dmg","channel":"beta"})";
}

// curl and open by the test's orders: $here/manifest is what the manifest's URL answers,
// $here/image what is written in place of an image; none makes the run fail.
class UpdaterRun : public testing::Test {
 protected:
  UpdaterRun() {
    tools_.add("curl", R"(
target=
for word; do test "$before" = -o && target=$word; before=$word; done
if test -z "$target"; then cat "$here/manifest" || exit 22; exit 0; fi
cat "$here/image" > "$target" || exit 22
test ! -f "$here/cut" || exit 18)");
    tools_.add("open", "exit 0");
  }

  void serve(const std::string& manifest) { write_file(tools_.folder() / "manifest", manifest); }
  void serve_image(const std::string& image) { write_file(tools_.folder() / "image", image); }

  std::string download_of(const std::string& version, const std::string& image) {
    serve(manifest_of(version));
    serve_image(image);
    return updater_.download();
  }

  Tools tools_;
  TempFolder root_;
  const std::string updates_ = root_ / "updates";
  const std::string latest_ = updates_ + "/Morvane-Connector-latest.dmg";
  Updater updater_{root_.path(), manifest_url, "0.1.0"};
};

TEST_F(UpdaterRun, check_compares_the_manifests_version_with_ours) {
  struct Row {
    const char* version;
    const char* available;
  };
  for (const Row& row : {Row{"0.1.1", "true"}, Row{"0.10", "true"}, Row{"1", "true"},
                         Row{"0.1", "false"}, Row{"0.0.9", "false"}, Row{"v2", "false"}}) {
    const std::string manifest = manifest_of(row.version);
    serve(manifest);
    EXPECT_EQ(updater_.check(),
              R"({"status":"ok","current_version":"0.1.0","latest_version":")" +
                  std::string(row.version) + R"(","update_available":)" + row.available +
                  R"(,"channel":"beta","manifest_url":")" + manifest_url +
                  R"(","dmg_url":"https://host/a b.dmg","manifest":)" + manifest + "}");
  }
  EXPECT_EQ(tools_.calls("curl").at(0), (Words{"-sS", "--fail", "--max-time", "20", manifest_url}));
}

TEST_F(UpdaterRun, a_manifest_without_version_or_image_is_echoed_as_it_came) {
  for (const std::string& manifest :
       {std::string("<html>\n\"404\"\n"), std::string(R"({"version":"1"})"), std::string("\n"),
        std::string(R"({"dmgUrl":"u"})"), std::string(R"({"version":"","dmgUrl":"u"})")}) {
    serve(manifest);
    const std::string invalid =
        R"({"status":"error","reason":"manifest_invalid","manifest_url":")" +
        std::string(manifest_url) + R"(","manifest":)" + manifest + "}";
    EXPECT_EQ(updater_.check(), invalid);
    EXPECT_EQ(updater_.download(), invalid);
  }
}

TEST_F(UpdaterRun, without_a_manifest_check_and_download_give_different_reasons) {
  const std::string url = std::string(R"(,"manifest_url":")") + manifest_url + "\"}";
  for (const char* served : {"nothing", "an empty one"}) {
    EXPECT_EQ(updater_.check(), R"({"status":"error","reason":"update_check_failed")" + url)
        << served;
    EXPECT_EQ(updater_.download(), R"({"status":"error","reason":"manifest_fetch_failed")" + url)
        << served;
    serve("");
  }
}

TEST_F(UpdaterRun, texts_are_escaped_and_the_manifest_is_not) {
  serve("{\"version\":\"0\\1\t2\",\"dmgUrl\":\"u\\\"\nv\"}\n");
  const std::string answer = Updater(root_.path(), "https://host/\"q\"", "0.1\"").check();
  EXPECT_EQ(answer,
            "{\"status\":\"ok\",\"current_version\":\"0.1\\\"\",\"latest_version\":\"0\\\\1\\t2\","
            "\"update_available\":false,\"channel\":\"\","
            "\"manifest_url\":\"https://host/\\\"q\\\"\",\"dmg_url\":\"u\\\\\","
            "\"manifest\":{\"version\":\"0\\1\t2\",\"dmgUrl\":\"u\\\"\nv\"}\n}");
}

TEST_F(UpdaterRun, nothing_is_downloaded_when_ours_is_the_latest) {
  for (const char* version : {"0.1.0", "0.1", "0.0.9"}) {
    EXPECT_EQ(download_of(version, "image"),
              std::string(R"({"status":"ok","current_version":"0.1.0","latest_version":")") +
                  version + R"(","update_available":false,"note":"already_on_latest_version"})");
  }
  EXPECT_EQ(tools_.calls("curl").size(), 3U) << "the manifests alone";
  EXPECT_TRUE(fs::is_empty(updates_));
}

TEST_F(UpdaterRun, each_download_keeps_its_image_and_replaces_the_latest) {
  const std::string first = updates_ + "/Morvane-Connector-0.2.0.dmg";
  EXPECT_EQ(download_of("0.2.0", "first"),
            R"({"status":"ok","current_version":"0.1.0","latest_version":"0.2.0",)"
            R"("update_available":true,"downloaded":true,"downloaded_to":")" +
                first + R"(","latest_file":")" + latest_ +
                R"(","dmg_url":"https://host/a b.dmg"})");
  EXPECT_EQ(tools_.calls("curl").back(), (Words{"-sS", "--fail", "--max-time", "300", "-L",
                                                "https://host/a b.dmg", "-o", first}));
  EXPECT_EQ(file_text(latest_), "first");
  download_of("0.3.0", "second");
  EXPECT_EQ(file_text(first), "first");
  EXPECT_EQ(file_text(updates_ + "/Morvane-Connector-0.3.0.dmg"), "second");
  EXPECT_EQ(file_text(latest_), "second");
  EXPECT_FALSE(fs::is_symlink(latest_));
}

TEST_F(UpdaterRun, a_link_in_the_latest_images_place_is_replaced_and_not_followed) {
  const std::string elsewhere = root_ / "elsewhere.dmg";
  write_file(elsewhere, "elsewhere");
  fs::create_symlink(elsewhere, latest_);
  download_of("0.2.0", "image");
  EXPECT_EQ(file_text(latest_), "image");
  EXPECT_FALSE(fs::is_symlink(latest_));
  EXPECT_EQ(file_text(elsewhere), "elsewhere");
}

TEST_F(UpdaterRun, a_partial_download_never_becomes_the_latest_image) {
  download_of("0.2.0", "whole");
  write_file(tools_.folder() / "cut", "");
  EXPECT_EQ(download_of("0.3.0", "half"),
            R"({"status":"error","reason":"update_download_failed","latest_version":"0.3.0",)"
            R"("dmg_url":"https://host/a b.dmg"})");
  EXPECT_EQ(file_text(latest_), "whole");
}

TEST_F(UpdaterRun, a_copy_that_fails_leaves_no_latest_image) {
  download_of("0.2.0", "whole");
  tools_.add("curl", "cat $here/manifest");  // says that it wrote the image, and did not
  EXPECT_EQ(download_of("0.3.0", "").rfind(R"({"status":"ok")", 0), 0U);
  EXPECT_FALSE(fs::exists(latest_));
}

TEST_F(UpdaterRun, no_version_text_leads_out_of_the_folder) {
  const std::string name = "Morvane-Connector-9_.._.._.._evil.dmg";
  const std::string answer = download_of("9/../../../evil", "image");
  EXPECT_EQ(file_text(updates_ + "/" + name), "image") << answer;
  EXPECT_EQ(file_text(latest_), "image");
  EXPECT_NE(answer.find(R"("latest_version":"9/../../../evil")"), std::string::npos) << answer;
}

TEST_F(UpdaterRun, apply_opens_the_latest_image_before_any_other) {
  write_file(updates_ + "/Morvane-Connector-0.2.0.dmg", "");
  write_file(latest_, "");
  EXPECT_EQ(updater_.apply(),
            R"({"status":"ok","applied":false,"install_flow_started":true,"file":")" + latest_ +
                R"(","note":"dmg_opened_drag_updated_app_into_Applications"})");
  EXPECT_EQ(tools_.calls("open"), (std::vector<Words>{{latest_}}));
}

TEST_F(UpdaterRun, apply_falls_back_to_any_image_file_of_the_folder) {
  const std::string missing =
      R"({"status":"error","reason":"update_file_missing","updates_dir":")" + updates_ + "\"}";
  EXPECT_EQ(updater_.apply(), missing);
  fs::create_directory(updates_ + "/folder.dmg");
  for (const char* name : {"image.DMG", "image.dmg.part", "dmg", ".dmg"}) {
    write_file(updates_ + "/" + name, "");
  }
  EXPECT_EQ(updater_.apply(), missing);
  const std::string image = updates_ + "/it's mine.dmg";
  write_file(image, "");
  EXPECT_NE(updater_.apply().find(R"("file":")" + image + "\""), std::string::npos);
  EXPECT_EQ(tools_.calls("open"), (std::vector<Words>{{image}}));
}

TEST_F(UpdaterRun, apply_says_when_the_image_does_not_open) {
  write_file(latest_, "");
  const std::string failed =
      R"({"status":"error","reason":"open_dmg_failed","file":")" + latest_ + "\"}";
  tools_.add("open", "exit 1");
  EXPECT_EQ(updater_.apply(), failed);
  const Tools no_tools("");
  EXPECT_EQ(updater_.apply(), failed);
}

TEST_F(UpdaterRun, the_folder_is_made_and_a_file_in_its_place_throws) {
  EXPECT_EQ(mode_of(updates_), 0700);
  write_file(root_ / "file", "");
  EXPECT_THROW(Updater(root_ / "file", manifest_url, "0.1.0"), fs::filesystem_error);
}

}  // namespace
}  // namespace morvane::connector
