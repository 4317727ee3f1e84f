#pragma once

#include <fstream>
#include <optional>
#include <string>

namespace morvane::connector {

// Files and directories that are the owner's alone, whatever umask the caller runs with.

// Creates `path` and its missing parents with mode 0700. A directory that exists keeps its mode.
// Throws std::filesystem::filesystem_error when it cannot be created.
void create_private_directories(const std::string& path);

// Takes every right of group and others from `path` if it is a file or a folder. Failures are
// ignored: it is then somebody else's, and reading or writing it says so.
void make_private(const std::string& path);

// Opens `path` for writing (`mode` is std::ios::trunc or std::ios::app). A new file has mode 0600
// from the moment it exists; a wider one is narrowed before anything is written. The stream is
// false when the file cannot be opened.
std::ofstream open_private(const std::string& path, std::ios::openmode mode);

// The whole content of `path`, or nothing when it cannot be read (a directory included).
std::optional<std::string> read_file(const std::string& path);

}  // namespace morvane::connector
