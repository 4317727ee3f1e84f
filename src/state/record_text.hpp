#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <string_view>
#include <variant>

namespace morvane::connector {

// The "key=value" text in which every record of the connector is kept: one line per field, in the
// order of the record's field table, which reader and writer both walk. A flag is "1" or "0".
// Values stand raw, so one that holds a line feed breaks its record: the owner's may, and what
// comes from elsewhere is checked before.

template <typename Record>
struct RecordField {
  std::string_view key;
  std::variant<std::string Record::*, bool Record::*> member;
};

template <typename Record, std::size_t Count>
using RecordFields = std::array<RecordField<Record>, Count>;

// Every line, the last included, ends with a line feed; empty values are written too.
template <typename Record, std::size_t Count>
std::string to_text(const Record& record, const RecordFields<Record, Count>& fields) {
  std::string text;
  for (const RecordField<Record>& field : fields) {
    text.append(field.key).append("=");
    if (const auto* flag = std::get_if<bool Record::*>(&field.member)) {
      text += record.*(*flag) ? "1" : "0";
    } else {
      text += record.*std::get<std::string Record::*>(field.member);
    }
    text += '\n';
  }
  return text;
}

// Sets the fields of `record` that `text` has a line for. A line splits at its first "="; one
// without "=" or with an unknown key is skipped, the last line of a key wins, and nothing is
// trimmed: blanks and a carriage return stay. A flag is true for "1" alone.
template <typename Record, std::size_t Count>
void from_text(std::string_view text, const RecordFields<Record, Count>& fields, Record& record) {
  while (!text.empty()) {
    const std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(line.size() == text.size() ? line.size() : line.size() + 1);
    const std::size_t equals = line.find('=');
    if (equals == std::string_view::npos) {
      continue;
    }
    const std::string_view value = line.substr(equals + 1);
    for (const RecordField<Record>& field : fields) {
      if (field.key != line.substr(0, equals)) {
        continue;
      }
      if (const auto* flag = std::get_if<bool Record::*>(&field.member)) {
        record.*(*flag) = value == "1";
      } else {
        record.*std::get<std::string Record::*>(field.member) = value;
      }
    }
  }
}

}  // namespace morvane::connector
