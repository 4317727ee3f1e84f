#include "net/json.hpp"

#include "net/text.hpp"

namespace morvane::connector {

std::string json_object(const std::vector<JsonMember>& members) {
  std::size_t length = 2;
  for (const JsonMember& member : members) {
    length += member.name.size() + member.value.size() + 4;
  }
  std::string object = "{";
  object.reserve(length);  // an exchange's answer may be large
  for (const JsonMember& member : members) {
    object += object.size() > 1 ? ",\"" : "\"";
    object.append(member.name).append("\":").append(member.value);
  }
  object += '}';
  return object;
}

std::string json_raw(std::string_view text) { return std::string("\"").append(text).append("\""); }

std::string json_text(std::string_view text) { return json_raw(json_escape(text)); }

std::string json_escape(std::string_view text) { return escaped(text, '"'); }

std::string ok_json(std::string_view exchange, std::string_view kind, std::string_view body) {
  return json_object({{"status", json_raw("ok")},
                      {"exchange", json_raw(exchange)},
                      {"kind", json_raw(kind)},
                      {"body", body}});
}

std::string fail_json(std::string_view reason, const std::vector<JsonMember>& more) {
  const std::string word = json_raw(reason);
  std::vector<JsonMember> members = {{"status", "\"error\""}, {"reason", word}};
  members.insert(members.end(), more.begin(), more.end());
  return json_object(members);
}

}  // namespace morvane::connector
