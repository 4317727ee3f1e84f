#pragma once

#include <optional>
#include <string>

namespace morvane::connector {

// Files and folders that are the owner's alone. New ones get mode 0600 and, under the umask that
// main() sets, 0700. What stands in a file's place and is no regular file (a folder, a pipe, a
// device) is no file: it is not waited for, not read, not written and not narrowed.

// Creates `path` with its missing parents and takes every right of group and others from it and
// from each file in it; what cannot be narrowed is left, as it is then somebody else's. Throws
// std::filesystem::filesystem_error when the folder cannot be created.
void own_folder(const std::string& path);

// Creates `path`, of which the parent is open to everybody. Throws as above, and also when what
// is there is a link or belongs to another user.
void create_among_strangers(const std::string& path);

// The whole content of `path`, or nothing when it cannot be read.
std::optional<std::string> read_file(const std::string& path);

// Puts `text`, which ends with a line feed, in the place of the content of `path`; false when the
// file cannot be opened for writing. Another run that reads meanwhile sees the old lines or the
// new ones, never some of either, perhaps with empty lines after them. On a full disk the old text
// stays, and the answer is true.
bool replace_file(const std::string& path, const std::string& text);

// Adds `line` and a line feed to the end of `path`, if it can be opened.
void append_line(const std::string& path, const std::string& line);

}  // namespace morvane::connector
