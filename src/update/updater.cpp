#include "update/updater.hpp"

#include <algorithm>
#include <filesystem>
#include <system_error>
#include <utility>

#include "net/json.hpp"
#include "net/shell.hpp"
#include "net/text.hpp"
#include "state/private_file.hpp"
#include "state/state_files.hpp"
#include "update/manifest.hpp"

namespace morvane::connector {
namespace {

namespace fs = std::filesystem;

// The text of the published manifest; empty when it could not be had.
std::string fetch_manifest(const std::string& url) {
  CommandOutput result = run_command("curl -sS --fail --max-time 20 " + shell_word(url));
  return result.exit_code == 0 ? std::move(result.output) : "";
}

// What a manifest says; all empty when it could not be had.
struct Manifest {
  std::string text;
  std::string version = extract_json_string(text, "version");
  std::string image_url = extract_json_string(text, "dmgUrl");

  bool names_a_release() const { return !version.empty() && !image_url.empty(); }
};

std::string updates_dir_for(const std::string& root) { return root + state_files::updates; }

// The version comes from the network: a "/" in it must not lead out of the folder.
std::string latest_download_target(const std::string& app_root, std::string version) {
  std::replace(version.begin(), version.end(), '/', '_');
  return updates_dir_for(app_root) + "/Morvane-Connector-" +
         (version.empty() ? "unknown" : version) + ".dmg";
}

std::string latest_symlink_target(const std::string& app_root) {
  return updates_dir_for(app_root) + "/Morvane-Connector-latest.dmg";
}

std::string manifest_invalid(const std::string& manifest_url, const std::string& manifest) {
  return fail_json("manifest_invalid",
                   {{"manifest_url", json_text(manifest_url)}, {"manifest", manifest}});
}

// curl takes a text that begins with "-" for an option, and braces and brackets for many addresses.
bool is_one_address(const std::string& url) {
  return url.front() != '-' && url.find_first_of("{}[]") == std::string::npos;
}

// Whether curl may write there: a pipe, say, would hold it up.
bool is_free_for_a_file(const std::string& path) {
  std::error_code ignored;
  return !fs::exists(path, ignored) || fs::is_regular_file(path, ignored);
}

bool fetch_image(const std::string& url, const std::string& image) {
  return is_one_address(url) && is_free_for_a_file(image) &&
         run_command("curl -sS --fail --max-time 300 -L " + shell_word(url) + " -o " +
                     shell_word(image))
                 .exit_code == 0;
}

// Leaves a whole copy of `image` as `latest`, or none.
void keep_as_latest(const std::string& image, const std::string& latest) {
  const std::string copy = unfinished_beside(latest);
  std::error_code ignored;
  std::error_code failed;
  fs::copy_file(image, copy, fs::copy_options::overwrite_existing, failed);
  if (failed || fs::is_directory(fs::symlink_status(latest, ignored))) {
    fs::remove(latest, ignored);  // a folder only when it is empty
  }
  if (!failed) {
    fs::rename(copy, latest, failed);
  }
  if (failed) {
    fs::remove(copy, ignored);
  }
}

// Any image of the folder, or `otherwise`.
std::string first_image(const std::string& folder, const std::string& otherwise) {
  for (const fs::path& file : files_in(folder)) {
    if (file.extension() == ".dmg") {
      return file.string();
    }
  }
  return otherwise;
}

}  // namespace

Updater::Updater(std::string app_root, std::string manifest_url, std::string current_version)
    : app_root_(std::move(app_root)),
      manifest_url_(std::move(manifest_url)),
      current_version_(std::move(current_version)) {
  own_folder(updates_dir_for(app_root_));
}

std::string Updater::check() const {
  const Manifest manifest{fetch_manifest(manifest_url_)};
  if (manifest.text.empty()) {
    return fail_json("update_check_failed", {{"manifest_url", json_text(manifest_url_)}});
  }
  if (!manifest.names_a_release()) {
    return manifest_invalid(manifest_url_, manifest.text);
  }
  return json_object({{"status", json_text("ok")},
                      {"current_version", json_text(current_version_)},
                      {"latest_version", json_text(manifest.version)},
                      {"update_available",
                       true_or_false(compare_versions(current_version_, manifest.version) < 0)},
                      {"channel", json_text(extract_json_string(manifest.text, "channel"))},
                      {"manifest_url", json_text(manifest_url_)},
                      {"dmg_url", json_text(manifest.image_url)},
                      {"manifest", manifest.text}});
}

std::string Updater::download() const {
  const Manifest manifest{fetch_manifest(manifest_url_)};
  if (manifest.text.empty()) {
    // Meant: another reason than check() gives.
    return fail_json("manifest_fetch_failed", {{"manifest_url", json_text(manifest_url_)}});
  }
  if (!manifest.names_a_release()) {
    return manifest_invalid(manifest_url_, manifest.text);
  }
  if (compare_versions(current_version_, manifest.version) >= 0) {
    return json_object({{"status", json_text("ok")},
                        {"current_version", json_text(current_version_)},
                        {"latest_version", json_text(manifest.version)},
                        {"update_available", "false"},
                        {"note", json_text("already_on_latest_version")}});
  }
  const std::string image = latest_download_target(app_root_, manifest.version);
  if (!fetch_image(manifest.image_url, image)) {
    return fail_json("update_download_failed", {{"latest_version", json_text(manifest.version)},
                                                {"dmg_url", json_text(manifest.image_url)}});
  }
  const std::string latest = latest_symlink_target(app_root_);
  keep_as_latest(image, latest);
  return json_object({{"status", json_text("ok")},
                      {"current_version", json_text(current_version_)},
                      {"latest_version", json_text(manifest.version)},
                      {"update_available", "true"},
                      {"downloaded", "true"},
                      {"downloaded_to", json_text(image)},
                      {"latest_file", json_text(latest)},
                      {"dmg_url", json_text(manifest.image_url)}});
}

std::string Updater::apply() const {
  const std::string folder = updates_dir_for(app_root_);
  std::string image = latest_symlink_target(app_root_);
  std::error_code ignored;
  if (!fs::is_regular_file(image, ignored)) {
    image = first_image(folder, image);
  }
  if (!fs::is_regular_file(image, ignored)) {
    return fail_json("update_file_missing", {{"updates_dir", json_text(folder)}});
  }
  if (run_command("open " + shell_word(image)).exit_code != 0) {
    return fail_json("open_dmg_failed", {{"file", json_text(image)}});
  }
  return json_object({{"status", json_text("ok")},
                      {"applied", "false"},
                      {"install_flow_started", "true"},
                      {"file", json_text(image)},
                      {"note", json_text("dmg_opened_drag_updated_app_into_Applications")}});
}

}  // namespace morvane::connector
