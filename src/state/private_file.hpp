#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace morvane::connector {

// Files and folders that are the owner's alone. New ones get mode 0600 and, under the umask that
// main() sets, 0700. What stands in a file's place and is no regular file (a folder, a pipe, a
// device) is no file: it is not waited for, not read, not written and not narrowed.

// Creates `path` with its missing parents and takes every right of group and others from it and
// from each file in it; what cannot be narrowed is left, as it is then somebody else's, and so is
// what is a link or lies behind one. Removes what killed runs left unfinished there. Throws
// std::filesystem::filesystem_error when the folder cannot be created.
void own_folder(const std::string& path);

// Creates `path`, of which the parent is open to everybody. Throws as above, and also when what
// is there is a link or belongs to another user.
void create_among_strangers(const std::string& path);

// The regular files in `folder`, as far as it can be listed.
std::vector<std::filesystem::path> files_in(const std::string& folder);

// Where this process may write what is to be given the name `path` when it is whole.
std::string unfinished_beside(const std::string& path);

// What became of a text: the file cannot be written, or not be read and so not be replaced; the
// disk had no room for it, and the old text stays; all of it is there.
enum class Kept { refused, cut_short, whole };

class StateFile {
 public:
  explicit StateFile(std::string path) : path_(std::move(path)) {}

  // The whole content, or nothing where there is no file. One that is there and cannot be read is
  // what this object knows of it, if anything, and is not replaced by it afterwards.
  std::optional<std::string> read() const;

  // Lets the file appear with `text` in it, at once, or not at all. Refused when it is there
  // already, or cannot be made so.
  Kept create(const std::string& text) const;

  // Puts `text`, which ends with a line feed, in the place of the content, if there is any. Another
  // run that reads meanwhile sees the old lines or the new ones, never some of either, perhaps with
  // empty lines after them.
  Kept replace(const std::string& text) const;

  // Adds `line` and a line feed to the end, if it can.
  void append_line(const std::string& line) const;

 private:
  Kept put(const std::string& text) const;

  std::string path_;
  mutable std::optional<std::string> known_;  // the content when it was last read or replaced
  mutable bool unreadable_ = false;
};

}  // namespace morvane::connector
