#include "update/updater.hpp"

#include <algorithm>
#include <filesystem>
#include <initializer_list>
#include <string_view>
#include <system_error>
#include <utility>

#include "net/shell.hpp"
#include "state/private_file.hpp"
#include "update/manifest.hpp"

namespace morvane::connector {
namespace {

namespace fs = std::filesystem;

// The manifest's text, or empty when it could not be had.
std::string fetch_manifest(const std::string& url) {
  CommandOutput result = run_command("curl -sS --fail --max-time 20 " + shell_escape(url));
  return result.exit_code == 0 ? std::move(result.output) : "";
}

std::string updates_dir_for(const std::string& root) { return root + "/updates"; }

// The version comes from the network: a "/" in it must not lead out of the folder.
std::string latest_download_target(const std::string& app_root, std::string version) {
  std::replace(version.begin(), version.end(), '/', '_');
  return updates_dir_for(app_root) + "/Morvane-Connector-" +
         (version.empty() ? "unknown" : version) + ".dmg";
}

std::string latest_symlink_target(const std::string& app_root) {
  return updates_dir_for(app_root) + "/Morvane-Connector-latest.dmg";
}

struct Member {
  std::string_view name;
  std::string value;  // as it stands in the JSON
};

std::string json_string(const std::string& text) { return "\"" + json_escape(text) + "\""; }

std::string json_object(std::initializer_list<Member> members) {
  std::string object;
  for (const Member& member : members) {
    object += (object.empty() ? "{\"" : ",\"");
    object.append(member.name).append("\":").append(member.value);
  }
  return object + "}";
}

std::string manifest_invalid(const std::string& manifest_url, const std::string& manifest) {
  return json_object({{"status", json_string("error")},
                      {"reason", json_string("manifest_invalid")},
                      {"manifest_url", json_string(manifest_url)},
                      {"manifest", manifest}});
}

// curl takes a text that begins with "-" for an option, and braces and brackets for many addresses.
bool is_one_address(const std::string& url) {
  return url.front() != '-' && url.find_first_of("{}[]") == std::string::npos;
}

// Leaves a whole copy of `image` as `latest`, or none.
void keep_as_latest(const std::string& image, const std::string& latest) {
  std::error_code failed;
  fs::remove(latest, failed);
  fs::copy_file(image, latest, fs::copy_options::overwrite_existing, failed);
  if (failed) {
    fs::remove(latest, failed);
  }
}

// Any image of the folder, or `otherwise`.
std::string first_image(const std::string& folder, const std::string& otherwise) {
  std::error_code ignored;
  for (const fs::directory_entry& entry : fs::directory_iterator(folder, ignored)) {
    if (entry.is_regular_file(ignored) && entry.path().extension() == ".dmg") {
      return entry.path().string();
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
  const std::string manifest = fetch_manifest(manifest_url_);
  if (manifest.empty()) {
    return json_object({{"status", json_string("error")},
                        {"reason", json_string("update_check_failed")},
                        {"manifest_url", json_string(manifest_url_)}});
  }
  const std::string version = extract_json_string(manifest, "version");
  const std::string image_url = extract_json_string(manifest, "dmgUrl");
  if (version.empty() || image_url.empty()) {
    return manifest_invalid(manifest_url_, manifest);
  }
  const bool update_available = compare_versions(current_version_, version) < 0;
  return json_object({{"status", json_string("ok")},
                      {"current_version", json_string(current_version_)},
                      {"latest_version", json_string(version)},
                      {"update_available", update_available ? "true" : "false"},
                      {"channel", json_string(extract_json_string(manifest, "channel"))},
                      {"manifest_url", json_string(manifest_url_)},
                      {"dmg_url", json_string(image_url)},
                      {"manifest", manifest}});
}

std::string Updater::download() const {
  const std::string manifest = fetch_manifest(manifest_url_);
  if (manifest.empty()) {
    // Meant: another reason than check() gives, so that the platform can tell the two apart.
    return json_object({{"status", json_string("error")},
                        {"reason", json_string("manifest_fetch_failed")},
                        {"manifest_url", json_string(manifest_url_)}});
  }
  const std::string version = extract_json_string(manifest, "version");
  const std::string image_url = extract_json_string(manifest, "dmgUrl");
  if (version.empty() || image_url.empty()) {
    return manifest_invalid(manifest_url_, manifest);
  }
  if (compare_versions(current_version_, version) >= 0) {
    return json_object({{"status", json_string("ok")},
                        {"current_version", json_string(current_version_)},
                        {"latest_version", json_string(version)},
                        {"update_available", "false"},
                        {"note", json_string("already_on_latest_version")}});
  }
  const std::string image = latest_download_target(app_root_, version);
  const bool downloaded = is_one_address(image_url) &&
                          run_command("curl -sS --fail --max-time 300 -L " +
                                      shell_escape(image_url) + " -o " + shell_escape(image))
                                  .exit_code == 0;
  if (!downloaded) {
    return json_object({{"status", json_string("error")},
                        {"reason", json_string("update_download_failed")},
                        {"latest_version", json_string(version)},
                        {"dmg_url", json_string(image_url)}});
  }
  const std::string latest = latest_symlink_target(app_root_);
  keep_as_latest(image, latest);
  return json_object({{"status", json_string("ok")},
                      {"current_version", json_string(current_version_)},
                      {"latest_version", json_string(version)},
                      {"update_available", "true"},
                      {"downloaded", "true"},
                      {"downloaded_to", json_string(image)},
                      {"latest_file", json_string(latest)},
                      {"dmg_url", json_string(image_url)}});
}

std::string Updater::apply() const {
  const std::string folder = updates_dir_for(app_root_);
  std::string image = latest_symlink_target(app_root_);
  std::error_code ignored;
  if (!fs::exists(image, ignored)) {
    image = first_image(folder, image);
  }
  if (!fs::exists(image, ignored)) {
    return json_object({{"status", json_string("error")},
                        {"reason", json_string("update_file_missing")},
                        {"updates_dir", json_string(folder)}});
  }
  const CommandOutput result = run_command("open " + shell_escape(image));
  if (result.exit_code != 0) {
    return json_object({{"status", json_string("error")},
                        {"reason", json_string("open_dmg_failed")},
                        {"file", json_string(image)}});
  }
  return json_object({{"status", json_string("ok")},
                      {"applied", "false"},
                      {"install_flow_started", "true"},
                      {"file", json_string(image)},
                      {"note", json_string("dmg_opened_drag_updated_app_into_Applications")}});
}

}  // namespace morvane::connector
