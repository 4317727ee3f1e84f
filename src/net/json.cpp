#include "net/json.hpp"

#include <utility>

#include "net/text.hpp"

namespace morvane::connector {

std::string json_object(std::initializer_list<JsonMember> members,
                        std::initializer_list<JsonMember> more) {
  std::size_t length = 2;
  for (const auto& list : {members, more}) {
    for (const JsonMember& member : list) {
      length += member.name.size() + member.value.size() + 4;
    }
  }
  std::string object = "{";
  object.reserve(length);  // an exchange's answer may be large
  for (const auto& list : {members, more}) {
    for (const JsonMember& member : list) {
      object += object.size() > 1 ? ",\"" : "\"";
      object.append(member.name).append("\":").append(member.value);
    }
  }
  object += '}';
  return object;
}

std::string json_raw(std::string_view text) { return std::string("\"").append(text).append("\""); }

std::string json_text(std::string_view text) { return json_raw(json_escape(text)); }

std::string json_escape(std::string_view text) { return escaped(text, '"'); }

std::string ok_json(std::string_view exchange, std::string_view kind, std::string body) {
  return json_object({{"status", json_raw("ok")},
                      {"exchange", json_raw(exchange)},
                      {"kind", json_raw(kind)},
                      {"body", std::move(body)}});
}

std::string fail_json(std::string_view reason, std::initializer_list<JsonMember> more) {
  return json_object({{"status", json_raw("error")}, {"reason", json_raw(reason)}}, more);
}

}  // namespace morvane::connector
