#pragma once

#include <initializer_list>
#include <string>
#include <string_view>

#include "net/text.hpp"

namespace morvane::connector {

// JSON on one line, without a blank between its tokens.

struct JsonMember {
  std::string name;
  std::string value;  // as it stands in the JSON
};

// The members in the order given.
std::string json_object(std::initializer_list<JsonMember> members);

// `text` for the inside of a JSON string: tab, line feed, carriage return, quote and backslash are
// escaped, every other byte stands as it is.
inline std::string json_escape(std::string_view text) { return escaped(text, '"'); }

// The value of a member: `text` between quotes, as it stands or escaped.
std::string json_raw(std::string_view text);
inline std::string json_text(std::string_view text) { return json_raw(json_escape(text)); }

// {"status":"ok","exchange":...,"kind":...,"body":<body>} around an exchange's raw answer, which is
// neither parsed nor escaped.
std::string ok_json(std::string_view exchange, std::string_view kind, std::string body);

// {"status":"error","reason":"<reason>",...}; `reason` is one fixed word of the program.
std::string fail_json(std::string_view reason, std::initializer_list<JsonMember> more = {});

}  // namespace morvane::connector
