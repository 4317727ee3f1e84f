#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace morvane::connector {

// JSON on one line, without a blank between its tokens.

struct JsonMember {
  std::string_view name;
  std::string_view value;  // as it stands in the JSON
};

// The members in the order given.
std::string json_object(const std::vector<JsonMember>& members);

// The value of a member: `text` between quotes, as it stands or escaped.
std::string json_raw(std::string_view text);
std::string json_text(std::string_view text);

// `text` for the inside of a JSON string: tab, line feed, carriage return, quote and backslash are
// escaped, every other byte stands as it is.
std::string json_escape(std::string_view text);

// {"status":"ok","exchange":...,"kind":...,"body":<body>} around an exchange's raw answer, which is
// neither parsed nor escaped.
std::string ok_json(std::string_view exchange, std::string_view kind, std::string_view body);

// {"status":"error","reason":"<reason>",...}; `reason` is one fixed word of the program.
std::string fail_json(std::string_view reason, const std::vector<JsonMember>& more = {});

}  // namespace morvane::connector
