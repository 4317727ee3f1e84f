#pragma once

#include <string>

namespace morvane::connector {

// Looks for, fetches and opens newer releases. Every operation answers one JSON object on one line
// (an echoed manifest keeps its own line breaks); a failure is "status":"error" with a reason.
class Updater {
 public:
  // Creates the updates folder under `app_root`; throws std::filesystem::filesystem_error on
  // failure. `current_version` is dotted numbers.
  Updater(std::string app_root, std::string manifest_url, std::string current_version);

  // Compares the manifest's version with ours. Reasons: "update_check_failed", "manifest_invalid".
  std::string check() const;

  // Downloads a newer image and keeps a copy of it under the fixed name of the latest image.
  // Reasons: "manifest_fetch_failed", "manifest_invalid", "update_download_failed" (what curl had
  // written by then stays under the versioned name; the latest image stays as it was).
  std::string download() const;

  // Hands the latest image, or else any image of the folder, to open(1). The connector never
  // replaces itself. Reasons: "update_file_missing", "open_dmg_failed".
  std::string apply() const;

 private:
  std::string app_root_;
  std::string manifest_url_;
  std::string current_version_;
};

}  // namespace morvane::connector
