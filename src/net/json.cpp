#include "net/json.hpp"

#include <utility>

namespace morvane::connector {

std::string json_object(std::initializer_list<JsonMember> members) {
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

std::string ok_json(std::string_view exchange, std::string_view kind, std::string body) {
  return json_object({{"status", json_raw("ok")},
                      {"exchange", json_raw(exchange)},
                      {"kind", json_raw(kind)},
                      {"body", std::move(body)}});
}

std::string fail_json(std::string_view reason, std::initializer_list<JsonMember> more) {
  const std::string object =
      json_object({{"status", json_raw("error")}, {"reason", json_raw(reason)}});
  return more.size() == 0 ? object
                          : object.substr(0, object.size() - 1) + "," + json_object(more).substr(1);
}

}  // namespace morvane::connector
